#include "engine/songencoder.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>

namespace SongEncoder {

namespace {

// Reading a header takes ffmpeg well under a second; this only guards against a hang.
constexpr double kProbeTimeoutSec = 60;
// Without an output ffmpeg only prints the input's description, a few KiB even with
// many tags; "Duration:" is in its first lines.
constexpr qsizetype kProbeKeepBytes = 64 * 1024;

constexpr double kEncodeBaseSec = 600;
constexpr double kEncodeSecPerMiB = 2;

void keepTail(QByteArray &buffer, qsizetype keepBytes)
{
    if (buffer.size() > keepBytes)
        buffer.remove(0, buffer.size() - keepBytes);
}

} // namespace

QStringList reencodeArguments(const ReencodeInput &in)
{
    const bool withCover = !in.coverFile.isEmpty();
    QStringList args{QStringLiteral("-y"), QStringLiteral("-f"), in.inputFormat, QStringLiteral("-i"), in.mergedFile};
    if (withCover)
        args << QStringLiteral("-i") << in.coverFile;
    args << QStringLiteral("-map") << QStringLiteral("0:a");
    if (withCover)
        args << QStringLiteral("-map") << QStringLiteral("1:v");
    args << QStringLiteral("-acodec") << QStringLiteral("libmp3lame") << QStringLiteral("-q:a") << QStringLiteral("2");
    if (withCover)
        args << QStringLiteral("-c:v") << QStringLiteral("copy") << QStringLiteral("-id3v2_version") << QStringLiteral("3")
             << QStringLiteral("-metadata:s:v") << QStringLiteral("title=Album cover") << QStringLiteral("-metadata:s:v")
             << QStringLiteral("comment=Cover (front)");
    args << QStringLiteral("-metadata") << QStringLiteral("title=") + in.title;
    args << QStringLiteral("-metadata") << QStringLiteral("artist=") + in.artist;
    args << QStringLiteral("-metadata") << QStringLiteral("album=") + in.album;
    args << QStringLiteral("-metadata") << QStringLiteral("comment=") + in.comment;
    args << in.outputFile;
    return args;
}

RunResult run(const QString &program, const QStringList &arguments, double timeoutSec, qsizetype keepBytes)
{
    RunResult result;
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    // ffmpeg reads keyboard commands from stdin; an open pipe nobody writes is harmless,
    // but end-of-file makes the intent plain.
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start();
    if (!process.waitForStarted(30'000)) {
        result.diagnostics = process.errorString().toUtf8();
        return result;
    }
    result.started = true;

    // stderr must be drained while the child runs, or ffmpeg blocks once the pipe is full.
    const QDeadlineTimer deadline(qint64(timeoutSec * 1000));
    while (process.state() != QProcess::NotRunning) {
        if (deadline.hasExpired()) {
            process.kill();
            process.waitForFinished(10'000);
            result.timedOut = true;
            break;
        }
        process.waitForReadyRead(int(std::clamp<qint64>(deadline.remainingTime(), 1, 500)));
        result.diagnostics += process.readAllStandardError();
        keepTail(result.diagnostics, keepBytes);
    }
    result.diagnostics += process.readAllStandardError();
    keepTail(result.diagnostics, keepBytes);
    if (!result.timedOut && process.exitStatus() == QProcess::NormalExit)
        result.exitCode = process.exitCode();
    return result;
}

double parseDuration(QByteArrayView diagnostics)
{
    static const QRegularExpression kValue(QStringLiteral("^Duration: (\\d+):(\\d{1,2}):(\\d{1,2}(?:\\.\\d+)?)"));
    const QByteArrayView marker("Duration: ");
    const qsizetype at = diagnostics.indexOf(marker);
    if (at < 0)
        return 0;
    const QString text = QString::fromLatin1(diagnostics.sliced(at, std::min<qsizetype>(40, diagnostics.size() - at)));
    const QRegularExpressionMatch m = kValue.match(text);
    if (!m.hasMatch())
        return 0;
    return m.captured(1).toDouble() * 3600 + m.captured(2).toDouble() * 60 + m.captured(3).toDouble();
}

double probeDuration(const QString &ffmpeg, const QString &file)
{
    const RunResult r = run(ffmpeg, {QStringLiteral("-hide_banner"), QStringLiteral("-i"), file}, kProbeTimeoutSec,
                            kProbeKeepBytes);
    return r.started && !r.timedOut ? parseDuration(r.diagnostics) : 0;
}

double encodeTimeoutSec(qint64 inputBytes)
{
    return kEncodeBaseSec + kEncodeSecPerMiB * double(inputBytes) / double(1 << 20);
}

} // namespace SongEncoder
