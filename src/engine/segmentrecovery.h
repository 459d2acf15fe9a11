#pragma once

#include <QString>
#include <QStringList>

// Salvages what a crash or a failed save left in the radio folder's "tmp" folder.
//
// Hidden segments ("." + UUID + ".mp3" or ".aac") become "Recovered <yyyy-MM-dd HH-mm-ss
// of their last change>.<ext>" in the folder "Recovered" of the radio folder, numbered
// " (2)", " (3)", ... when the name is taken; empty ones are removed. Leftover work files
// (".out_", ".merged_", ".cover_") are removed. A file that some process holds locked
// (a running recording or save, in this or another instance) is left alone, and so is one
// changed within the last `minAgeSec`: a writer opens its file a moment before it locks it.
//
// Blocking file work; run it at start on a thread-pool task (or before recording starts).
namespace SegmentRecovery {

// Returns the paths of the recovered files.
QStringList recoverOrphans(double minAgeSec = 10);
QStringList recoverOrphans(const QString &tmpDir, const QString &recoveredDir, double minAgeSec);

} // namespace SegmentRecovery
