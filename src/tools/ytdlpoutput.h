#pragma once

#include "tools/youtubeerror.h"

#include <QByteArray>
#include <QString>

#include <optional>

struct ChildProcessResult;

// The outcome of a download run: the produced file, or why there is none.
struct YtDlpDownloadResult {
    QString filePath;
    std::optional<YouTubeError> error;
    [[nodiscard]] bool ok() const { return !error.has_value(); }
};

// Reading what yt-dlp prints. Pure functions over bytes already read.
namespace YtDlpOutput {

// The fraction 0...1 of a "[download]  42.5% of ..." line; nothing for any other line,
// even one holding a percentage.
[[nodiscard]] std::optional<double> progressFraction(const QByteArray &line);

// "--print after_move:filepath" writes the final path as a line of its own; progress and
// status lines begin with "[".
[[nodiscard]] bool isPathLine(const QByteArray &line);

// The message of a failed run: yt-dlp's standard error, trimmed ("Unbekannter Fehler" when
// it said nothing), or what ended it (launch error, time-out, flood of output).
[[nodiscard]] QString failureMessage(const ChildProcessResult &result);

// A finished download attempt. `lastPathLine` is the last stdout line isPathLine() accepted
// (empty if none): exit status 0 with a path line is success.
[[nodiscard]] YtDlpDownloadResult downloadOutcome(const ChildProcessResult &result, const QByteArray &lastPathLine);

} // namespace YtDlpOutput
