#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include "platform/childprocess.h"

// The ffmpeg runs of a save: re-encoding a song to a tagged MP3, and reading a file's
// duration. ffmpeg is an external program found at run time and started directly, never
// through a shell. The runs block the calling thread (a local event loop spins there):
// thread-pool tasks only.
namespace SongEncoder {

struct ReencodeInput {
    QString inputFormat; // "mp3" or "aac": the stream's own bytes, no container
    QString mergedFile;
    QString coverFile; // empty: no cover
    QString title;
    QString artist;
    QString album;
    QString comment; // carried in the file's comment tag
    QString outputFile;
};

// The argument list for one re-encoding (to LAME VBR quality 2, cover copied as the
// ID3v2.3 front cover).
[[nodiscard]] QStringList reencodeArguments(const ReencodeInput &input);

// Runs ffmpeg with `arguments` to its end on the calling thread through the platform's
// child-process runner, killing it after `timeoutSec`. Standard input reads end-of-file;
// of stderr only the last `keepBytes` are kept (ffmpeg's progress lines would otherwise
// grow without bound).
[[nodiscard]] ChildProcessResult run(const QString &program, const QStringList &arguments, double timeoutSec,
                                     qsizetype keepBytes = 8 * 1024);

// One line saying why a run failed, for the error a user sees ("ffmpeg failed (status 1): ...").
[[nodiscard]] QString describeFailure(const QString &program, const ChildProcessResult &result);

// Seconds of the first "Duration: hh:mm:ss.ff" in ffmpeg's diagnostics; 0 when there is
// none or it reads "N/A".
[[nodiscard]] double parseDuration(QByteArrayView diagnostics);

// The file's duration as ffmpeg reports it ("-hide_banner -i file"; without an output
// ffmpeg exits with status 1, which is expected). 0 when unknown.
[[nodiscard]] double probeDuration(const QString &ffmpeg, const QString &file);

// A timeout for re-encoding `inputBytes` of audio that even a slow machine meets.
[[nodiscard]] double encodeTimeoutSec(qint64 inputBytes);

} // namespace SongEncoder
