#pragma once

#include <QString>
#include <QStringList>

// Where ffmpeg and yt-dlp are looked for. A plain value so tests can point it at folders
// they fill; the application uses system().
//
// Looking up is a few stat() calls and safe on any thread.
struct ToolLocations {
    // The folder of the running executable: tools shipped beside the program win.
    // Empty when there is no application object.
    QString bundleBinDir;
    // The private folder yt-dlp updates itself into ($XDG_DATA_HOME/Orvida Studio/bin).
    QString supportBinDir;
    // Tried after bundleBinDir, in this order: ~/.local/bin (pipx, pip --user),
    // /usr/local/bin, /usr/bin.
    QStringList systemBinDirs;

    // The locations of this process, computed once at first use.
    [[nodiscard]] static const ToolLocations &system();

    // The first candidate folder holding a file "ffmpeg" (any file: an existence test,
    // not an executable test); bundleBinDir when none does, so a later run fails with
    // the launcher's error instead of on an empty path.
    [[nodiscard]] QString findFfmpegDir() const;

    // Evaluated afresh at every call so a just-installed private copy is used at once.
    // The private copy counts only when it is an executable file; the other candidates
    // need only exist. Falls back to bundleBinDir + "/yt-dlp".
    [[nodiscard]] QString findYtDlpPath() const;

    [[nodiscard]] QString privateYtDlpPath() const { return supportBinDir + QStringLiteral("/yt-dlp"); }
    [[nodiscard]] QString bundleYtDlpPath() const { return bundleBinDir + QStringLiteral("/yt-dlp"); }

    // What the start-up gate checks: ffmpegDir + "/ffmpeg" exists; ytdlpPath exists.
    [[nodiscard]] static bool ffmpegPresent(const QString &ffmpegDir);
    [[nodiscard]] static bool ytdlpPresent(const QString &ytdlpPath);
};

// A regular file the current user may execute.
[[nodiscard]] bool isExecutableFile(const QString &path);
