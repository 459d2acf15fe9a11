#pragma once

#include "engine/segmentfile.h"
#include "library/track.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <vector>

// Salvages what a crash, a failed save or a stop with songs still waiting left in the
// radio folder's "tmp" folder, and keeps waiting songs out of its reach.
//
// Hidden segments ("." + UUID + ".mp3" or ".aac", in tmp or in a parking folder whose
// process is gone) become "Recovered <yyyy-MM-dd HH-mm-ss of their last change>.<ext>" in
// the folder "Recovered" of the radio folder, numbered " (2)", " (3)", ... when the name
// is taken. Only their audio frames are kept (a web page a server sent instead of audio,
// damage, partial frames at the ends go); a segment without a single frame is removed and
// listed as dropped, and so is an empty one. Leftover work files (".out_", ".merged_",
// ".cover_") and listening segments (".listen_", songs kept while listening that nobody
// asked to save) are removed. A file that some process holds locked (a running recording or
// save, in this or another instance) is left alone, and so is one changed within the last
// `minAgeSec`: a writer opens its file a moment before it locks it.
//
// Blocking file work; run it at start on a thread-pool task (or before recording starts).
namespace SegmentRecovery {

struct RecoveredSong {
    QString filePath;
    QString title; // "Recovered <stamp>", the file's name without its extension
    double durationSec = 0;
};

struct DroppedSegment {
    QString filePath;
    QString reason;
};

struct Result {
    QList<RecoveredSong> recovered;
    QList<DroppedSegment> dropped;
};

// The library record of a recovered song (source "radio", no station: a leftover does not
// say whose it was).
[[nodiscard]] Track toTrack(const RecoveredSong &song);

Result recoverOrphans(double minAgeSec = 10);
Result recoverOrphans(const QString &tmpDir, const QString &recoveredDir, double minAgeSec);

// Moves a handed-over song's segments into this process's parking folder next to them
// and lets go of their locks, so a song waiting for its save holds no open file. The
// process keeps one descriptor locked on the parking folder for as long as it lives:
// recovery, of any process, leaves the folder alone until then, and salvages what is
// still parked once the process has ended. Returns the segments' new paths (the old one
// where a move failed). Thread-safe.
[[nodiscard]] QStringList park(std::vector<SegmentLock> segments);

// At the end of the process, once no save runs: removes this process's parking folders
// that are empty and lets go of their locks. Songs still parked stay for the next start.
void leaveParking();

} // namespace SegmentRecovery
