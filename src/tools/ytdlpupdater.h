#pragma once

#include "platform/httpclient.h"
#include "tools/toollocations.h"
#include "tools/ytdlprelease.h"

#include <QDateTime>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

struct YtDlpUpdaterOptions {
    QString releasesBase = YtDlpRelease::baseFromEnvironment();
    QString assetName = YtDlpRelease::assetNameForThisMachine();
    // Where the asset lands before it is verified and moved. Empty: the system temp folder.
    QString downloadDir;
    // Idle time-outs of the release check and of the asset download (no byte for this
    // long ends them); each also gets a total bound of ten times as much.
    double apiTimeoutSec = 15;
    double downloadTimeoutSec = 120;
    double versionTimeoutSec = 10;
    // The clock of the once-a-day rule. Empty: the current time.
    std::function<QDateTime()> now;
};

enum class YtDlpUpdateOutcome {
    CheckedRecently, // the last check is less than a day old
    NoRelease,       // the release check failed; it is repeated next time
    UpToDate,        // the latest tag is the installed one
    Installed,       // a new private copy is in place
    InstallFailed,   // the previous copy stays
};

// Keeps the private yt-dlp ($XDG_DATA_HOME/Orvida Studio/bin/yt-dlp) at the project's
// latest release.
//
// Lives on the GUI thread; network transfers run on HttpClient's worker, hashing and file
// moves on the thread pool, and every result comes back here. Nothing is ever reported to
// the user: each failure ends quietly and leaves the previous copy in place. A new copy
// replaces the old one only after its SHA-256 matches the release's checksum list, and
// by an atomic rename.
class YtDlpUpdater : public QObject {
    Q_OBJECT
public:
    static inline const QString kLastCheckKey = QStringLiteral("ov.ytdlp.lastUpdateCheck");
    static inline const QString kInstalledVersionKey = QStringLiteral("ov.ytdlp.installedVersion");
    static constexpr double kCheckIntervalSec = 86400;
    static inline const QByteArray kUserAgent = QByteArrayLiteral("OrvidaStudio");

    YtDlpUpdater(
        HttpClient &http, ToolLocations locations, YtDlpUpdaterOptions options = {}, QObject *parent = nullptr);
    ~YtDlpUpdater() override;

    // At most once a day unless `force` (force skips only the day rule, not the version
    // comparison). A call while an update runs joins it. `done` runs on this thread.
    void updateYtDlpIfNeeded(bool force, std::function<void(YtDlpUpdateOutcome)> done = {});

    // The latest release's tag, or nothing.
    void fetchLatestYtDlpTag(std::function<void(std::optional<QString>)> done);

    // Downloads, verifies and installs release `tag` as the private copy. Reports success.
    void installYtDlp(const QString &tag, std::function<void(bool)> done);

    [[nodiscard]] bool isUpdating() const { return !m_waiting.empty(); }

private:
    void continueWithTag(const QString &tag);
    void compareAndInstall(const QString &tag, const QString &installedVersion);
    void finishUpdate(YtDlpUpdateOutcome outcome);
    void downloadAsset(const QString &tag, const QByteArray &expectedSha256, std::function<void(bool)> done);
    [[nodiscard]] QDateTime now() const;

    HttpClient &m_http;
    ToolLocations m_locations;
    YtDlpUpdaterOptions m_options;
    std::vector<std::function<void(YtDlpUpdateOutcome)>> m_waiting; // non-empty while updating
    HttpTransfer m_transfer;                                        // the request under way, cancelled with this object
    QString m_downloadPath; // the asset being downloaded, removed if this object goes first
};
