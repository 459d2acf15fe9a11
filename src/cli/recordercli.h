#pragma once

#include <QString>

#include <optional>

class CliServices;
class LibraryStore;
class RadioRecorder;

// What `record` and `run` share: the library, the recorder with its context, and the
// event lines the command-line contract prints for every session (started, title,
// error, saved, stopped), each flushed at once.
namespace RecorderCli {

struct Recorder {
    LibraryStore &library;
    RadioRecorder &recorder;
};

// Opens the library, salvages segments a crash left behind and builds the recorder in
// `services` (so it goes down before the library does). Absent, with `error` set, when
// the library cannot be opened.
[[nodiscard]] std::optional<Recorder> setUp(CliServices &services, QString *error);

} // namespace RecorderCli
