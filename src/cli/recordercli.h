#pragma once

#include <QString>

#include <optional>

class CliServices;
class LibraryStore;
class RadioRecorder;
class RecorderServices;

// What `record` and `run` share: the recorder's services, built as for the window, and
// the event lines the command-line contract prints for every session (started, title,
// error, saved, stopped), each flushed at once.
namespace RecorderCli {

struct Recorder {
    LibraryStore &library;
    RadioRecorder &recorder;
    // Owns the two above; shutDown() ends them in order (also run when `services` goes).
    RecorderServices &services;
};

// Opens the library and builds the recorder's services in `services`, salvaging segments
// a crash left behind. Absent, with `error` set, when the library cannot be opened.
[[nodiscard]] std::optional<Recorder> setUp(CliServices &services, QString *error);

} // namespace RecorderCli
