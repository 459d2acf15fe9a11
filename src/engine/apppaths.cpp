#include "engine/apppaths.h"

#include "engine/tracktitle.h"
#include "platform/paths.h"
#include "platform/preferences.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace AppPaths {

namespace {

constexpr qsizetype kMaxNameBytes = 255;

// A stand-in for values that would vanish or mean "this folder" / "parent folder".
const QString kStandIn = QStringLiteral("Unbekannt");

QString safeValue(const QString &raw)
{
    QString v = sanitizeComponent(TrackTitle::withoutControlCharacters(raw));
    if (v.isEmpty() || v == QLatin1String(".") || v == QLatin1String(".."))
        return kStandIn;
    return v;
}

// A finished path piece must not be empty, hidden (leading dot) or a dot name.
QString safePiece(const QString &raw)
{
    QString piece = raw.trimmed();
    while (piece.startsWith(QLatin1Char('.')))
        piece.remove(0, 1);
    piece = piece.trimmed();
    return piece.isEmpty() ? kStandIn : piece;
}

} // namespace

QString defaultRadioDir()
{
    return Paths::musicDir() + QStringLiteral("/Orvida/Radio");
}

QString radioDir()
{
    const QString chosen = Preferences::string(QStringLiteral("ov.radioSaveDir")).value_or(QString());
    return chosen.isEmpty() ? defaultRadioDir() : QDir::cleanPath(chosen);
}

QString tmpDir()
{
    return radioDir() + QStringLiteral("/tmp");
}

void ensure()
{
    QDir().mkpath(tmpDir());
}

QString sanitizeComponent(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '/': case '\\': case ':': case '*': case '?': case '"': case '<': case '>': case '|':
            out.append(QLatin1Char('-'));
            break;
        default:
            out.append(c);
        }
    }
    return out.trimmed();
}

QString expandPattern(const QString &pattern, const NamingValues &v)
{
    QString out = pattern;
    out.replace(QLatin1String("%artist%"), safeValue(v.artist));
    out.replace(QLatin1String("%title%"), safeValue(v.title));
    out.replace(QLatin1String("%streamtitle%"), safeValue(v.streamTitle));
    out.replace(QLatin1String("%station%"), safeValue(v.station));
    out.replace(QLatin1String("%date%"), v.date.toString(QStringLiteral("yyyy-MM-dd")));
    return out;
}

const QStringList &placeholderNames()
{
    static const QStringList names{QStringLiteral("artist"), QStringLiteral("title"), QStringLiteral("streamtitle"),
                                   QStringLiteral("station"), QStringLiteral("date")};
    return names;
}

QStringList unknownPlaceholders(const QString &pattern)
{
    // A lone percent sign ("100% live") is text; only %word% reads as a placeholder.
    static const QRegularExpression token(QStringLiteral("%([A-Za-z0-9_]+)%"));
    QStringList unknown;
    for (const QRegularExpressionMatch &match : token.globalMatch(pattern)) {
        if (placeholderNames().contains(match.captured(1)))
            continue;
        if (!unknown.contains(match.captured(0)))
            unknown.append(match.captured(0));
    }
    return unknown;
}

QString fitFileName(const QString &name, const QString &ext)
{
    const qsizetype budget = kMaxNameBytes - (ext.isEmpty() ? 0 : ext.toUtf8().size() + 1);
    if (name.toUtf8().size() <= budget)
        return name;
    QString out;
    qsizetype bytes = 0;
    for (qsizetype i = 0; i < name.size();) {
        // Keep surrogate pairs together: a code point is one or two UTF-16 units.
        const qsizetype units = (name[i].isHighSurrogate() && i + 1 < name.size()) ? 2 : 1;
        const qsizetype cost = name.mid(i, units).toUtf8().size();
        if (bytes + cost > budget)
            break;
        out += name.mid(i, units);
        bytes += cost;
        i += units;
    }
    return out.trimmed();
}

std::optional<QString> recordingPath(const QString &radio, const QString &namePattern, const QString &folderPattern,
                                    const NamingValues &values, const QString &ext, bool createFolders)
{
    const QString root = QDir::cleanPath(radio);
    QString folder = root;
    if (!folderPattern.isEmpty()) {
        // The pattern's own slashes make folders; a value's slashes were made "-" above.
        for (const QString &piece : expandPattern(folderPattern, values).split(QLatin1Char('/'), Qt::SkipEmptyParts))
            folder += QLatin1Char('/') + fitFileName(safePiece(piece), QString());
    }
    const QString pattern = namePattern.isEmpty() ? QStringLiteral("%streamtitle%") : namePattern;
    QString name = safePiece(expandPattern(pattern, values).replace(QLatin1Char('/'), QLatin1Char('-')));
    name = fitFileName(name, ext);
    const QString path = QDir::cleanPath(folder + QLatin1Char('/') + name + (ext.isEmpty() ? QString() : QLatin1Char('.') + ext));
    if (!path.startsWith(root + QLatin1Char('/')))
        return std::nullopt;
    if (createFolders)
        QDir().mkpath(QFileInfo(path).absolutePath());
    return path;
}

std::optional<QString> recordingPath(const QString &artist, const QString &title, const QString &streamTitle,
                                    const QString &station, const QString &ext)
{
    return recordingPath(radioDir(), Preferences::string(QStringLiteral("ov.radioNamePattern")).value_or(QString()),
                        Preferences::string(QStringLiteral("ov.radioFolderPattern")).value_or(QString()),
                        {artist, title, streamTitle, station, QDate::currentDate()}, ext, true);
}

} // namespace AppPaths
