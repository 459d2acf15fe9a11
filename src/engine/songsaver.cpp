#include "engine/songsaver.h"

#include "engine/apppaths.h"
#include "engine/audioframes.h"
#include "engine/id3tag.h"
#include "engine/songencoder.h"
#include "engine/trackinfolookup.h"
#include "engine/tracktitle.h"

#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QUuid>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

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

// ffmpeg's MP3 of the joined segments in `merged`. Absent, with `why`, when ffmpeg is
// missing or fails.
std::optional<WorkFile> writeReencoded(const QString &merged, const QString &inputFormat, const Tags &tags,
                                       const QString &ffmpeg, QString &why)
{
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

    const QStringList arguments = SongEncoder::reencodeArguments({inputFormat, merged, cover ? cover->path() : QString(),
                                                                  tags.title, tags.artist, tags.album, tags.comment,
                                                                  out->path()});
    const ChildProcessResult run =
        SongEncoder::run(ffmpeg, arguments, SongEncoder::encodeTimeoutSec(QFileInfo(merged).size()));
    if (!run.succeeded()) {
        why = SongEncoder::describeFailure(ffmpeg, run);
        return std::nullopt;
    }
    if (QFileInfo(out->path()).size() <= 0) {
        why = QStringLiteral("ffmpeg wrote no audio");
        return std::nullopt;
    }
    return out;
}

// `head` followed by the frame runs of `merged`: the stream's own audio and nothing else.
std::optional<WorkFile> writeFrames(const QString &merged, const AudioFrames::Walk &walk, const QByteArray &head,
                                    const QString &ext, QString &why)
{
    const QString path = newWorkPath(QStringLiteral(".out_"), QLatin1Char('.') + ext);
    auto file = SegmentFile::create(path);
    if (!file) {
        why = QStringLiteral("cannot create %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno)));
        return std::nullopt;
    }
    QFile in(merged);
    const uchar *mapped = in.open(QIODevice::ReadOnly) ? in.map(0, in.size()) : nullptr;
    if (!mapped) {
        why = QStringLiteral("cannot read %1: %2").arg(merged, in.errorString());
        WorkFile discard(file->close());
        return std::nullopt;
    }
    file->write(head);
    for (const AudioFrames::Run &run : walk.runs)
        file->write(QByteArrayView(reinterpret_cast<const char *>(mapped) + run.offset, run.bytes));
    in.unmap(const_cast<uchar *>(mapped));
    const bool flushed = file->flush();
    WorkFile work(file->close());
    if (!flushed || file->hasError()) {
        why = QStringLiteral("cannot write %1 (disk full?)").arg(path);
        return std::nullopt;
    }
    return work;
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

std::optional<QString> SongSaver::screen(const QString &title, qint64 bytes, qint64 bytesPerSec,
                                         const SaveSettings &settings, bool fullShow)
{
    if (!fullShow && settings.skipJingles && TrackTitle::looksLikeJingle(TrackTitle::withoutControlCharacters(title)))
        return QStringLiteral("jingle or advert");
    if (bytes <= 0)
        return QStringLiteral("no audio");
    if (fullShow || settings.minDurationSec < 1 || bytesPerSec <= 0)
        return std::nullopt;
    // Half the minimum: a station listed at twice its real bitrate still keeps its songs.
    if (double(bytes) < 0.5 * double(settings.minDurationSec) * double(bytesPerSec))
        return QStringLiteral("too short (about %1 s, minimum %2 s)")
            .arg(qRound64(double(bytes) / double(bytesPerSec)))
            .arg(settings.minDurationSec);
    return std::nullopt;
}

std::optional<QString> SongSaver::checkRadioFolder()
{
    AppPaths::ensure();
    const auto cannot = [](const QString &folder) {
        return QStringLiteral("radio folder cannot be written: %1: %2")
            .arg(folder, QString::fromLocal8Bit(std::strerror(errno)));
    };
    // The final files go into the radio folder itself; access() also sees a read-only mount.
    if (::access(QFile::encodeName(AppPaths::radioDir()).constData(), W_OK | X_OK) != 0)
        return cannot(AppPaths::radioDir());
    auto probe = SegmentFile::create(newWorkPath(QStringLiteral(".out_"), QStringLiteral(".probe")));
    if (!probe)
        return cannot(AppPaths::tmpDir());
    probe->close().removeFile();
    return std::nullopt;
}

SaveOutcome SongSaver::mergeAndSave(std::vector<SegmentLock> segments, const QString &title,
                                    const QString &stationName, const SaveOptions &options)
{
    SaveOutcome outcome;
    outcome.streamTitle = TrackTitle::withoutControlCharacters(title);
    const auto skip = [&](const QString &why) {
        deleteSegments(segments);
        outcome.result = SaveResult::Skipped;
        outcome.reason = why;
        return outcome;
    };
    const auto fail = [&](const QString &why) {
        // The segments stay, unlocked, for recovery.
        for (SegmentLock &segment : segments)
            segment.release();
        outcome.result = SaveResult::Failed;
        outcome.reason = why;
        return outcome;
    };

    std::erase_if(segments, [](const SegmentLock &s) { return !s.isValid(); });
    if (segments.empty())
        return skip(QStringLiteral("no audio"));

    const SaveSettings settings = options.settings ? options.settings() : SaveSettings{};
    const QString station = TrackTitle::withoutControlCharacters(stationName);
    QString streamTitle = outcome.streamTitle;

    if (!options.fullShow && settings.skipJingles && TrackTitle::looksLikeJingle(streamTitle))
        return skip(QStringLiteral("jingle or advert"));
    if (totalBytes(segments) == 0)
        return skip(QStringLiteral("no audio"));
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
    auto merged = writeWorkFile(newWorkPath(QStringLiteral(".merged_"), QLatin1Char('.') + streamExt), {}, segments, why);
    if (!merged)
        return fail(why);
    const auto walked = AudioFrames::walkFile(merged->path());
    if (!walked)
        return skip(QStringLiteral("no audio frames in the stream's data"));

    std::optional<WorkFile> out;
    QString ext = QStringLiteral("mp3");
    double durationSec = 0;
    if (!settings.lossless) {
        out = writeReencoded(merged->path(), streamExt, tags, options.ffmpegPath, why);
        if (out)
            durationSec = durationOf(out->path(), options.ffmpegPath);
        else
            outcome.reason = QStringLiteral("saved without re-encoding: ") + why;
    }
    if (!out) {
        ext = streamExt;
        // The stream's own frames, untouched; only MP3 carries an ID3 tag in front.
        const QByteArray tag = ext == QLatin1String("mp3")
                                   ? Id3Tag::buildID3v2Tag(tags.title, tags.artist, tags.album, tags.cover)
                                   : QByteArray();
        out = writeFrames(merged->path(), *walked, tag, ext, why);
        if (!out)
            return fail(why);
        durationSec = walked->durationSec;
    }
    merged.reset();

    if (!options.fullShow && isTooShort(durationSec, settings.minDurationSec))
        return skip(QStringLiteral("too short (%1 s, minimum %2 s)")
                        .arg(durationSec, 0, 'f', 1)
                        .arg(settings.minDurationSec));

    const auto target = AppPaths::recordingPath(tags.artist, tags.title, streamTitle, station, ext);
    if (!target)
        return fail(QStringLiteral("no valid file name"));
    switch (placeFile(*out, *target, durationSec, options.ffmpegPath, why)) {
    case Placement::Failed:
        return fail(why);
    case Placement::KeptExisting:
        return skip(QStringLiteral("%1 already holds a recording at least as long").arg(*target));
    case Placement::Moved:
        break;
    }
    deleteSegments(segments);
    outcome.result = SaveResult::Saved;
    outcome.song = SavedSong{*target, tags.title, tags.artist, tags.album, durationSec, station};
    return outcome;
}
