#pragma once

#include "engine/segmentfile.h"

#include <QString>

#include <functional>
#include <optional>
#include <vector>

class HttpClient;

// The engine settings a save reads, fresh at its start.
struct SaveSettings {
    bool skipJingles = true;
    bool lossless = false;
    qint64 minDurationSec = 45;
};

struct SaveOptions {
    QString stationId;
    // A whole show kept as one track: no jingle filter, no look-up and no minimum
    // duration (a show cut short by a stop is still the show).
    bool fullShow = false;
    HttpClient *http = nullptr; // null: no album and cover look-up
    QString storeBase;
    QString ffmpegPath;
    // The settings in force for stationId; unset: SaveSettings's defaults.
    std::function<SaveSettings()> settings;
};

struct SavedSong {
    QString filePath; // absolute path of the final file
    QString title;
    QString artist;
    QString album;
    double durationSec = 0; // 0 when ffmpeg could not tell
    QString stationName;
};

enum class SaveResult {
    Saved,   // a file in the radio folder (`song`); `reason` may hold a notice
    Skipped, // dropped on purpose: a jingle, too short, a same-name recording kept, no audio
    Failed,  // could not be written; the segments are left for recovery
};

struct SaveOutcome {
    SaveResult result = SaveResult::Failed;
    QString streamTitle; // as handed over, without control characters
    std::optional<SavedSong> song;
    // Skipped and Failed: why, in one line naming the file where there is one. Saved:
    // what the user should know about the file ("saved without re-encoding: ..."), or empty.
    QString reason;
};

// Turns a finished song (its segment files, oldest first, and its stream title) into one
// tagged file in the radio folder.
//
// Runs on a thread-pool task and blocks it for the look-up and the ffmpeg runs; nothing
// here touches the GUI thread. Every call stands alone, so several saves may run at once.
//
// Only audio reaches the radio folder: the segments are joined and walked frame by frame
// (MP3, ADTS AAC), and a song without a single frame is dropped. The byte-exact path keeps
// the frame runs alone, so an error page or damage between them never lands in the file.
// When ffmpeg is missing or fails, the song is kept the byte-exact way and the outcome
// says so, rather than losing it with the re-encoding.
//
// What happens to the segments:
// - saved, or dropped on purpose (a jingle, too short, no audio, a same-name recording that
//   is at least as long): the segment files are deleted;
// - the save failed (a full disk, a folder that cannot be written): the segment files are
//   left where they are and their locks let go, so recovery salvages the audio instead
//   of it being lost with the save.
// Work files (".out_", ".merged_", ".cover_") never outlive the call, and each is held
// locked while it exists so a second instance's recovery leaves it alone.
//
// The same-name rule: a final name that is taken is only replaced by a longer recording
// (by the duration of both); otherwise the existing file stays and the new one is
// dropped. So a song repeated later in the day does not overwrite a complete earlier
// recording with one cut short, and a longer take does win.
class SongSaver {
public:
    [[nodiscard]] static SaveOutcome mergeAndSave(std::vector<SegmentLock> segments, const QString &title,
                                                  const QString &stationName, const SaveOptions &options);

    // True when a song of `durationSec` is too short to keep. An unknown duration (0)
    // and a minimum below 1 s keep everything.
    [[nodiscard]] static bool isTooShort(double durationSec, qint64 minDurationSec);

    // Why a handed-over song is not worth a save at all, decided before any file work so
    // a title storm costs no encoding: a jingle (as mergeAndSave judges it), no bytes, or
    // clearly under the minimum length by its byte count at `bytesPerSec`. The listed
    // bitrate a rate comes from can be wrong, so only songs under half the minimum go.
    // Absent: queue it for saving.
    [[nodiscard]] static std::optional<QString> screen(const QString &title, qint64 bytes, qint64 bytesPerSec,
                                                       const SaveSettings &settings, bool fullShow);

    // Whether the radio folder and its tmp folder can be written, tried by creating a
    // file in tmp and checking the folder itself; the reason, naming the folder, when not.
    // Blocking file work.
    [[nodiscard]] static std::optional<QString> checkRadioFolder();
};
