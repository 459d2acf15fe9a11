#include "engine/songsaver.h"

#include "engine/apppaths.h"
#include "engine/audioframes.h"
#include "engine/id3tag.h"
#include "engine/songencoder.h"
#include "engine/trackinfolookup.h"
#include "engine/tracktitle.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QUuid>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr qint64 kCopyChunkBytes = qint64(1) << 20;

// A file of ours in the tmp folder: locked while it exists, removed when this goes out
// of scope, so no return path can leave it behind.
class WorkFile {
public:
    explicit WorkFile(SegmentLock lock) : m_lock(std::move(lock)) {}
    WorkFile(WorkFile &&) = default;
    WorkFile &operator=(WorkFile &&) = default;
    ~WorkFile() { m_lock.removeFile(); }

    [[nodiscard]] const QString &path() const { return m_lock.path(); }
    // The file was moved away: only the lock is left to drop.
    void disown() { m_lock.release(); }

private:
    SegmentLock m_lock;
};

// What a failed save says, in one line.
void warn(const SaveOptions &options, const QString &streamTitle, const QString &what)
{
    qWarning().noquote() << QStringLiteral("Recording \"%1\" of station %2 not saved: %3")
                                .arg(streamTitle, options.stationId, what);
}

QString newWorkPath(const QString &prefix, const QString &suffix)
{
    return AppPaths::tmpDir() + QLatin1Char('/') + prefix +
           QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + suffix;
}

void deleteSegments(std::vector<SegmentLock> &segments)
{
    for (SegmentLock &segment : segments)
        segment.removeFile();
}

qint64 totalBytes(const std::vector<SegmentLock> &segments)
{
    qint64 total = 0;
    for (const SegmentLock &segment : segments)
        total += QFileInfo(segment.path()).size();
    return total;
}

// Appends every segment whole, in order. False with a reason when a segment cannot be
// read or the target cannot be written.
bool appendSegments(SegmentFile &out, const std::vector<SegmentLock> &segments, QString &why)
{
    for (const SegmentLock &segment : segments) {
        QFile in(segment.path());
        if (!in.open(QIODevice::ReadOnly)) {
            why = QStringLiteral("cannot read %1: %2").arg(segment.path(), in.errorString());
            return false;
        }
        while (!in.atEnd()) {
            const QByteArray chunk = in.read(kCopyChunkBytes);
            if (chunk.isEmpty() && in.error() != QFileDevice::NoError) {
                why = QStringLiteral("cannot read %1: %2").arg(segment.path(), in.errorString());
                return false;
            }
            out.write(chunk);
        }
    }
    if (!out.flush()) {
        why = QStringLiteral("cannot write %1 (disk full?)").arg(out.path());
        return false;
    }
    return true;
}

// A locked work file holding `head` followed by the segments.
std::optional<WorkFile> writeWorkFile(const QString &path, const QByteArray &head,
                                      const std::vector<SegmentLock> &segments, QString &why)
{
    auto file = SegmentFile::create(path);
    if (!file) {
        why = QStringLiteral("cannot create %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno)));
        return std::nullopt;
    }
    file->write(head);
    const bool ok = appendSegments(*file, segments, why);
    WorkFile work(file->close());
    if (!ok)
        return std::nullopt;
    if (file->hasError()) {
        why = QStringLiteral("cannot write %1 (disk full?)").arg(path);
        return std::nullopt;
    }
    return work;
}

struct Tags {
    QString title;
    QString artist;
    QString album;
    QByteArray cover;
    QString comment;
};

std::optional<WorkFile> writeReencoded(const std::vector<SegmentLock> &segments, const QString &inputFormat,
                                       const Tags &tags, const QString &ffmpeg, QString &why)
{
    auto merged = writeWorkFile(newWorkPath(QStringLiteral(".merged_"), QString()), {}, segments, why);
    if (!merged)
        return std::nullopt;
    std::optional<WorkFile> cover;
    if (!tags.cover.isEmpty()) {
        cover = writeWorkFile(newWorkPath(QStringLiteral(".cover_"), QStringLiteral(".jpg")), tags.cover, {}, why);
        if (!cover)
            return std::nullopt;
    }
    // Created and locked before ffmpeg writes into it (ffmpeg truncates the same file, so
    // the lock stays on what it writes).
    auto out = writeWorkFile(newWorkPath(QStringLiteral(".out_"), QStringLiteral(".mp3")), {}, {}, why);
    if (!out)
        return std::nullopt;

    const QStringList arguments = SongEncoder::reencodeArguments(
        {inputFormat, merged->path(), cover ? cover->path() : QString(), tags.title, tags.artist, tags.album,
         tags.comment, out->path()});
    const SongEncoder::RunResult run =
        SongEncoder::run(ffmpeg, arguments, SongEncoder::encodeTimeoutSec(QFileInfo(merged->path()).size()));
    if (!run.succeeded()) {
        const QByteArray lastLine = run.diagnostics.trimmed().split('\n').last().trimmed();
        if (!run.started)
            why = QStringLiteral("ffmpeg (%1) did not start: %2").arg(ffmpeg, QString::fromUtf8(lastLine));
        else if (run.timedOut)
            why = QStringLiteral("ffmpeg took too long and was stopped");
        else
            why = QStringLiteral("ffmpeg failed (status %1): %2").arg(run.exitCode).arg(QString::fromUtf8(lastLine));
        return std::nullopt;
    }
    if (QFileInfo(out->path()).size() <= 0) {
        why = QStringLiteral("ffmpeg wrote no audio");
        return std::nullopt;
    }
    return out;
}

// MP3 and AAC are measured by their frames; ffmpeg is asked only about anything else.
double durationOf(const QString &path, const QString &ffmpeg)
{
    if (const auto sec = AudioFrames::fileDurationSec(path))
        return *sec;
    return SongEncoder::probeDuration(ffmpeg, path);
}

enum class Placement { Moved, KeptExisting, Failed };

Placement placeFile(WorkFile &out, const QString &target, double newDurationSec, const QString &ffmpeg, QString &why)
{
    // Within this process, two saves that arrive at one name decide one after the other.
    static QMutex mutex;
    QMutexLocker locker(&mutex);
    const QFileInfo existing(target);
    if (existing.exists() || existing.isSymLink()) {
        const double oldDurationSec = durationOf(target, ffmpeg);
        if (!(newDurationSec > oldDurationSec))
            return Placement::KeptExisting;
    }
    if (std::rename(QFile::encodeName(out.path()).constData(), QFile::encodeName(target).constData()) != 0) {
        why = QStringLiteral("cannot move it to %1: %2").arg(target, QString::fromLocal8Bit(std::strerror(errno)));
        return Placement::Failed;
    }
    out.disown();
    return Placement::Moved;
}

} // namespace

bool SongSaver::isTooShort(double durationSec, qint64 minDurationSec)
{
    return durationSec > 0 && minDurationSec >= 1 && durationSec <= double(minDurationSec);
}

std::optional<SavedSong> SongSaver::mergeAndSave(std::vector<SegmentLock> segments, const QString &title,
                                                 const QString &stationName, const SaveOptions &options)
{
    std::erase_if(segments, [](const SegmentLock &s) { return !s.isValid(); });
    if (segments.empty())
        return std::nullopt;

    const SaveSettings settings = options.settings ? options.settings() : SaveSettings{};
    const QString station = TrackTitle::withoutControlCharacters(stationName);
    QString streamTitle = TrackTitle::withoutControlCharacters(title);

    if (!options.fullShow && settings.skipJingles && TrackTitle::looksLikeJingle(streamTitle)) {
        deleteSegments(segments);
        return std::nullopt;
    }
    if (totalBytes(segments) == 0) {
        deleteSegments(segments);
        return std::nullopt;
    }
    if (streamTitle.isEmpty())
        streamTitle = station;

    const TrackTitle::Parts parts = TrackTitle::split(streamTitle);
    Tags tags;
    tags.artist = parts.artist.trimmed();
    tags.title = parts.title.trimmed();
    if (tags.title.isEmpty())
        tags.title = streamTitle;
    if (!station.isEmpty())
        tags.comment = QStringLiteral("Recorded from ") + station;

    // The store knows songs, not shows, and cannot tell a song by its title alone: a
    // wrong album is worse than none.
    if (!options.fullShow && options.http && !tags.artist.isEmpty()) {
        const auto info = TrackInfoLookup::lookupTrackInfo(*options.http, options.storeBase, tags.artist, tags.title);
        tags.album = TrackTitle::withoutControlCharacters(info.album.value_or(QString()));
        tags.cover = info.cover;
    }

    const QString streamExt =
        QFileInfo(segments.front().path()).suffix().compare(QLatin1String("aac"), Qt::CaseInsensitive) == 0
            ? QStringLiteral("aac")
            : QStringLiteral("mp3");
    AppPaths::ensure();

    QString why;
    std::optional<WorkFile> out;
    QString ext;
    if (settings.lossless) {
        ext = streamExt;
        // The stream's own bytes, untouched; only MP3 carries an ID3 tag in front.
        const QByteArray tag = ext == QLatin1String("mp3")
                                   ? Id3Tag::buildID3v2Tag(tags.title, tags.artist, tags.album, tags.cover)
                                   : QByteArray();
        out = writeWorkFile(newWorkPath(QStringLiteral(".out_"), QLatin1Char('.') + ext), tag, segments, why);
    } else {
        ext = QStringLiteral("mp3");
        out = writeReencoded(segments, streamExt, tags, options.ffmpegPath, why);
    }
    if (!out) {
        warn(options, streamTitle, why);
        return std::nullopt;
    }

    const double durationSec = durationOf(out->path(), options.ffmpegPath);
    if (!options.fullShow && isTooShort(durationSec, settings.minDurationSec)) {
        deleteSegments(segments);
        return std::nullopt;
    }

    const auto target = AppPaths::recordingUrl(tags.artist, tags.title, streamTitle, station, ext);
    if (!target) {
        warn(options, streamTitle, QStringLiteral("no valid file name"));
        return std::nullopt;
    }
    switch (placeFile(*out, *target, durationSec, options.ffmpegPath, why)) {
    case Placement::Failed:
        warn(options, streamTitle, why);
        return std::nullopt;
    case Placement::KeptExisting:
        deleteSegments(segments);
        return std::nullopt;
    case Placement::Moved:
        break;
    }
    deleteSegments(segments);
    return SavedSong{*target, tags.title, tags.artist, tags.album, durationSec, station};
}
