#pragma once

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

#include <optional>

struct Track;

// The covers of library tracks (the picture embedded in the file, else one beside it),
// saved as image files for whoever needs a path or a URL rather than bytes (the desktop's
// media controls). Each track's picture is extracted at most once per run into
// <folder>/<track id>.<jpg|png|...>, and a file saved by an earlier run is used again as
// long as it is newer than the audio file.
//
// Lives on the GUI thread. Looking at the disk and extracting happen on the thread pool;
// the answer comes back as coverLookedUp() on this thread.
class CoverCache : public QObject {
    Q_OBJECT

public:
    // `folder` empty: $XDG_CACHE_HOME/Orvida/covers.
    explicit CoverCache(QString folder = {}, QObject *parent = nullptr);
    ~CoverCache() override;

    // The saved cover when it is known already. Otherwise absent, and for a library track
    // with a file whose cover has not been looked for, a pool task starts looking and
    // coverLookedUp() follows. Tracks not in the library have no key and never get a
    // cover here.
    [[nodiscard]] std::optional<QString> coverPath(const Track &track);

    [[nodiscard]] const QString &folder() const { return m_folder; }

Q_SIGNALS:
    // The look-up for `trackId` ended: `path` is the saved cover, empty when it has none.
    void coverLookedUp(qint64 trackId, const QString &path);

private:
    QString m_folder;
    QHash<qint64, std::optional<QString>> m_known; // looked for: the file, or none
    QSet<qint64> m_pending;
};
