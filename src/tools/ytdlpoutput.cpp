#include "tools/ytdlpoutput.h"

#include "platform/childprocess.h"

#include <QRegularExpression>
#include <QStringDecoder>

#include <algorithm>

namespace YtDlpOutput {

std::optional<double> progressFraction(const QByteArray &line)
{
    if (!line.contains("[download]"))
        return std::nullopt;
    static const QRegularExpression percent(QStringLiteral("[0-9]+\\.?[0-9]*%"));
    const auto match = percent.match(QString::fromUtf8(line));
    if (!match.hasMatch())
        return std::nullopt;
    QString figure = match.captured(0);
    figure.chop(1);
    bool ok = false;
    const double value = figure.toDouble(&ok);
    if (!ok)
        return std::nullopt;
    return std::clamp(value / 100.0, 0.0, 1.0);
}

bool isPathLine(const QByteArray &line)
{
    return line.startsWith('/');
}

QString failureMessage(const ChildProcessResult &result)
{
    switch (result.status) {
    case ChildExit::FailedToStart: return result.errorText;
    case ChildExit::TimedOut: return QStringLiteral("yt-dlp hat sich nicht mehr gemeldet und wurde beendet");
    case ChildExit::OutputLimit: return QStringLiteral("yt-dlp hat zu viel ausgegeben und wurde beendet");
    case ChildExit::Cancelled: return QStringLiteral("Abgebrochen");
    case ChildExit::Exited:
    case ChildExit::Crashed: break;
    }
    // Invalid bytes become replacement characters: the text is for reading, not parsing.
    const QString text = QString::fromUtf8(result.stderrBytes).trimmed();
    if (text.isEmpty())
        return YouTubeErrorText::kUnknown;
    return result.stderrTruncated() ? QStringLiteral("…") + text : text;
}

YtDlpDownloadResult downloadOutcome(const ChildProcessResult &result, const QByteArray &lastPathLine)
{
    if (!result.succeeded() || lastPathLine.isEmpty())
        return {{}, YouTubeError::downloadFailed(failureMessage(result))};
    // A path with invalid bytes would name some other file; refuse it rather than guess.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringConverter::Flag::Stateless);
    const QString path = QString(decoder(lastPathLine)).trimmed();
    if (decoder.hasError())
        return {{},
            YouTubeError::downloadFailed(
                QStringLiteral("yt-dlp hat einen Dateipfad ausgegeben, der kein gültiges UTF-8 ist"))};
    return {path, std::nullopt};
}

} // namespace YtDlpOutput
