#include "engine/songencoder.h"

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

ChildProcessResult run(const QString &program, const QStringList &arguments, double timeoutSec, qsizetype keepBytes)
{
    ChildProcessOptions options;
    options.program = program;
    options.arguments = arguments;
    // ffmpeg's own output goes to a file named in its arguments; stdout stays quiet.
    options.stdoutKeepBytes = 0;
    options.stderrKeepBytes = keepBytes;
    options.timeoutSec = timeoutSec;
    return ChildProcess::run(std::move(options));
}

QString describeFailure(const QString &program, const ChildProcessResult &result)
{
    const QString lastLine = QString::fromUtf8(result.stderrBytes.trimmed().split('\n').last().trimmed());
    switch (result.status) {
    case ChildExit::FailedToStart:
        return QStringLiteral("ffmpeg (%1) did not start: %2").arg(program, result.errorText);
    case ChildExit::Exited:
        return QStringLiteral("ffmpeg failed (status %1): %2").arg(result.exitCode).arg(lastLine);
    default:
        return QStringLiteral("ffmpeg %1: %2").arg(describe(result.status), lastLine);
    }
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
    const ChildProcessResult r = run(ffmpeg, {QStringLiteral("-hide_banner"), QStringLiteral("-i"), file},
                                     kProbeTimeoutSec, kProbeKeepBytes);
    return r.status == ChildExit::Exited ? parseDuration(r.stderrBytes) : 0;
}

double encodeTimeoutSec(qint64 inputBytes)
{
    return kEncodeBaseSec + kEncodeSecPerMiB * double(inputBytes) / double(1 << 20);
}

} // namespace SongEncoder
