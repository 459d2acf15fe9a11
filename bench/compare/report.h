#pragma once

#include "measuredprocess.h"
#include "scoring.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// The comparison's outcome: one column per recorder, as a Markdown table for people and
// as JSON with every file's score for further digging.
namespace Report {

struct RecorderResult {
    QString label;
    QString folder; // below the run's folder; the files are in its "files"
    QString command; // program and arguments, for the record
    MeasuredProcess::Usage usage;
    QList<Scoring::FileScore> files;
    Scoring::Summary summary;
};

struct Comparison {
    QString codec; // "MP3 128 kbit/s"
    double recordSec = 0;
    double windowStartSec = 0; // source time
    double windowEndSec = 0;
    double shortSongSec = 0; // our default minimum song length
    QList<PlayedSong> played;
    QList<RecorderResult> recorders;
};

// The headline and the side-by-side table; with `files`, each recorder's files below.
[[nodiscard]] QString markdown(const Comparison &comparison, bool files);
[[nodiscard]] QByteArray json(const Comparison &comparison);
// What json() wrote, less the files and summaries (they are scored again); absent when
// the bytes are no such report.
[[nodiscard]] std::optional<Comparison> fromJson(const QByteArray &bytes);

} // namespace Report
