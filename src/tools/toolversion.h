#pragma once

#include <QString>

#include <functional>
#include <optional>

class QObject;
struct ChildProcessResult;

// "--version" queries of ffmpeg and yt-dlp.
namespace ToolVersion {

// A tool that hangs on "--version" must not hold the update or the command line forever.
constexpr double kDefaultTimeoutSec = 10;

// yt-dlp's flag. ffmpeg knows only "-version" and answers "--version" with exit status 1.
inline const QString kGnuFlag = QStringLiteral("--version");
inline const QString kFfmpegFlag = QStringLiteral("-version");

// Runs `path` with the single argument `flag` and returns its standard output, trimmed.
// Nothing when the path is not an executable file, the launch fails, the exit status is
// not 0, the time-out passes or the output is not UTF-8.
// Blocks the calling thread: for thread-pool tasks and the command line.
[[nodiscard]] std::optional<QString> run(
    const QString &path, const QString &flag = kGnuFlag, double timeoutSec = kDefaultTimeoutSec);

// The same with "--version", without blocking: `done` runs on `context`'s thread, not at all once the
// context is gone.
void runAsync(const QString &path, QObject *context, std::function<void(std::optional<QString>)> done,
    double timeoutSec = kDefaultTimeoutSec);

// The version text of a finished "--version" run.
[[nodiscard]] std::optional<QString> fromResult(const ChildProcessResult &result);

// A readable short form for listings: "ffmpeg version 5.1.2-3 Copyright ..." (and the
// build details on the following lines) gives "5.1.2-3"; a one-line answer such as
// yt-dlp's "2024.03.10" stays as it is; otherwise the first line.
[[nodiscard]] QString shortForm(const QString &version);

} // namespace ToolVersion
