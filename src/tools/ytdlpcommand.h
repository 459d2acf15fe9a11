#pragma once

#include "platform/childprocess.h"

#include <QString>
#include <QStringList>

// How every yt-dlp run is started, and the argument lists of the calls. The lists are
// shared with the Mac version of the application and are kept exactly.
namespace YtDlpCommand {

// Put before every call's own arguments: the player clients that still get streams
// without a signed-in session.
[[nodiscard]] QStringList fixedArguments();

// Program, fixed arguments + `callArguments`, PYTHONUNBUFFERED=1 (so progress lines arrive
// as they are printed), both pipes read. Limits and time-outs are the caller's to add.
[[nodiscard]] ChildProcessOptions launchOptions(const QString &ytdlpPath, const QStringList &callArguments);

// The video site's watch address of a video id.
[[nodiscard]] QString watchUrl(const QString &videoId);

// The call-specific lists; the last element is always the target.
[[nodiscard]] QStringList search(const QString &query);
[[nodiscard]] QStringList videoInfo(const QString &url);
[[nodiscard]] QStringList playlistExpansion(const QString &url);
[[nodiscard]] QStringList streamAddress(const QString &videoId);
[[nodiscard]] QStringList audioDownload(const QString &folder, const QString &videoId, const QString &ffmpegDir);
[[nodiscard]] QStringList videoDownload(const QString &folder, const QString &videoId, const QString &ffmpegDir);

} // namespace YtDlpCommand
