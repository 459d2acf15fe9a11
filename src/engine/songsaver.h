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

// Turns a finished song (its segment files, oldest first, and its stream title) into one
// tagged file in the radio folder.
//
// Runs on a thread-pool task and blocks it for the look-up and the ffmpeg runs; nothing
// here touches the GUI thread. Every call stands alone, so several saves may run at once.
//
// What happens to the segments:
// - saved, or dropped on purpose (a jingle, too short, a same-name recording that is at
//   least as long): the segment files are deleted;
// - the save failed (ffmpeg missing or failing, a full disk, a folder that cannot be
//   written): the segment files are left in "tmp" and their locks let go, so the next
//   start's recovery salvages the audio instead of it being lost with the save.
// Work files (".out_", ".merged_", ".cover_") never outlive the call, and each is held
// locked while it exists so a second instance's recovery leaves it alone.
//
// The same-name rule: a final name that is taken is only replaced by a longer recording
// (by ffmpeg's duration of both); otherwise the existing file stays and the new one is
// dropped. So a song repeated later in the day does not overwrite a complete earlier
// recording with one cut short, and a longer take does win.
class SongSaver {
public:
    [[nodiscard]] static std::optional<SavedSong> mergeAndSave(std::vector<SegmentLock> segments, const QString &title,
                                                               const QString &stationName, const SaveOptions &options);

    // True when a song of `durationSec` is too short to keep. An unknown duration (0)
    // and a minimum below 1 s keep everything.
    [[nodiscard]] static bool isTooShort(double durationSec, qint64 minDurationSec);
};
