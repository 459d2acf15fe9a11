#include "engine/streamplaylist.h"

#include "engine/icydemux.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace StreamPlaylist {

namespace {

std::optional<QUrl> parseUrl(const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty())
        return std::nullopt;
    return url;
}

} // namespace

bool isPlaylistUrl(const QUrl &url)
{
    const QString ext = QFileInfo(url.path()).suffix().toLower();
    return ext == QLatin1String("pls") || ext == QLatin1String("m3u");
}

std::optional<QUrl> firstStreamUrl(const QByteArray &body)
{
    static const QRegularExpression kNewlines(QStringLiteral("[\\n\\r\\x{000B}\\x{000C}\\x{0085}\\x{2028}\\x{2029}]"));
    const QString text = IcyText::decodeUtf8OrLatin1(body);
    for (const QString &raw : text.split(kNewlines)) {
        const QString line = raw.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const QString lower = line.toLower();
        if (lower.startsWith(QLatin1String("file"))) {
            const qsizetype eq = line.indexOf(QLatin1Char('='));
            if (eq >= 0) {
                const auto url = parseUrl(line.mid(eq + 1).trimmed());
                if (url && url->scheme().toLower().startsWith(QLatin1String("http")))
                    return url;
            }
        }
        if (lower.startsWith(QLatin1String("http"))) {
            if (const auto url = parseUrl(line))
                return url;
        }
    }
    return std::nullopt;
}

} // namespace StreamPlaylist
