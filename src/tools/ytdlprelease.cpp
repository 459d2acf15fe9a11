#include "tools/ytdlprelease.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSysInfo>
#include <QUrl>

namespace YtDlpRelease {

QString defaultBase()
{
    return QStringLiteral("https://api.github.com/repos/yt-dlp/yt-dlp");
}

QString baseFromEnvironment()
{
    QString base = qEnvironmentVariable("ORVIDA_RELEASES_URL");
    if (base.isEmpty())
        base = defaultBase();
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    return base;
}

QByteArray latestUrl(const QString &base)
{
    return (base + QStringLiteral("/releases/latest")).toUtf8();
}

QByteArray downloadUrl(const QString &base, const QString &tag, const QString &fileName)
{
    QUrl url(base);
    const QString apiRepoPrefix = QStringLiteral("/repos/");
    if (url.host() == QLatin1String("api.github.com") && url.path().startsWith(apiRepoPrefix)) {
        url.setHost(QStringLiteral("github.com"));
        url.setPath(url.path().mid(apiRepoPrefix.size() - 1));
    }
    url.setPath(url.path() + QStringLiteral("/releases/download/") + tag + QLatin1Char('/') + fileName);
    return url.toEncoded();
}

QString assetNameForThisMachine()
{
    return QSysInfo::currentCpuArchitecture() == QLatin1String("arm64") ? QStringLiteral("yt-dlp_linux_aarch64")
                                                                        : QStringLiteral("yt-dlp_linux");
}

bool isSafeTag(const QString &tag)
{
    static const QRegularExpression safe(QStringLiteral("^[A-Za-z0-9._+-]{1,100}$"));
    return safe.match(tag).hasMatch() && tag != QLatin1String(".") && tag != QLatin1String("..");
}

std::optional<QString> parseLatestTag(int statusCode, const QByteArray &body)
{
    if (statusCode != 200)
        return std::nullopt;
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    if (!doc.isObject())
        return std::nullopt;
    const QJsonValue tag = doc.object().value(QLatin1String("tag_name"));
    if (!tag.isString() || tag.toString().isEmpty())
        return std::nullopt;
    return tag.toString();
}

std::optional<QByteArray> expectedSha256(const QByteArray &sums, const QString &fileName)
{
    const QByteArray name = fileName.toUtf8();
    for (const QByteArray &rawLine : sums.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        const qsizetype space = line.indexOf(' ');
        if (space != 64)
            continue;
        QByteArray listed = line.mid(space).trimmed();
        if (listed.startsWith('*'))
            listed.remove(0, 1);
        if (listed != name)
            continue;
        const QByteArray hex = line.left(64).toLower();
        const bool isHex = std::all_of(
            hex.begin(), hex.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
        return isHex ? std::optional(hex) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace YtDlpRelease
