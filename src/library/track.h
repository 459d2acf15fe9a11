#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QUrl>

#include <optional>

// One library item: a recorded song, a capture, a downloaded episode or an imported file.
//
// A plain value. Its identity is `id`, the library store's persistent identifier (0 until
// the store has inserted it); two values are the same track when they carry the same id,
// whatever their fields say, because a view may hold a copy that is older than the row.
// Fields are in the stored order; the constructor takes them in the producers' order.
struct Track {
    qint64 id = 0;
    QString title;
    QString artist;
    QString album;
    double duration = 0; // seconds; always finite and within qint64 (see storableDuration)
    QDateTime dateAdded; // UTC
    bool isFavorite = false;
    QString genre;
    qint64 playCount = 0;
    QString source; // "radio", "recorder", "podcast", or what another producer names
    std::optional<QString> station; // the station a radio recording came from
    std::optional<QString> filePath; // absolute path of the audio file

    Track() = default;
    // Every producer builds its tracks through this constructor. A duration that is not
    // finite or does not fit qint64 (a producer's bug: a failed decode, a division by a
    // zero byte rate) is stored as 0 with a warning, so that one bad file can never make
    // the library unusable.
    Track(QString title, QString artist, QString album, double duration, const QDateTime &dateAdded, QString genre,
          bool isFavorite, qint64 playCount, QString source, std::optional<QString> station,
          std::optional<QString> filePath);

    // "file://" + filePath; absent when the track has no file (or an empty path).
    [[nodiscard]] std::optional<QUrl> fileUrl() const;

    // Whole seconds (truncated) as "m:ss"; minutes are not folded into hours (3725 s is
    // "62:05").
    [[nodiscard]] QString formattedDuration() const;

    // `durationSec` when it is finite and fits qint64, else 0.
    [[nodiscard]] static double storableDuration(double durationSec);

    friend bool operator==(const Track &a, const Track &b);
};

size_t qHash(const Track &track, size_t seed = 0);

// "m:ss" of whole seconds, shared by tracks and playlist entries.
[[nodiscard]] QString formatMinutesSeconds(qint64 wholeSeconds);

Q_DECLARE_METATYPE(Track)
