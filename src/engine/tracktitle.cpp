#include "engine/tracktitle.h"

#include <QRegularExpression>

namespace TrackTitle {

namespace {
const QString kSeparator = QStringLiteral(" - ");
}

Parts split(const QString &streamTitle)
{
    const qsizetype at = streamTitle.indexOf(kSeparator);
    if (at < 0)
        return {QString(), streamTitle};
    return {streamTitle.left(at), streamTitle.mid(at + kSeparator.size())};
}

bool looksLikeJingle(const QString &streamTitle)
{
    static const QRegularExpression kEmpty(QStringLiteral("^\\s*(unknown|n/?a|-)?\\s*$"),
                                           QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression kMarker(
        QStringLiteral("(\\bwerbung\\b|\\badvert|\\bcommercial\\b|\\bjingle\\b|\\bstation\\s?id\\b)"),
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::UseUnicodePropertiesOption);

    const qsizetype at = streamTitle.indexOf(kSeparator);
    if (at < 0)
        return true;
    const QString song = streamTitle.mid(at + kSeparator.size()).trimmed();
    if (kEmpty.match(song).hasMatch())
        return true;
    return !song.contains(kSeparator) && kMarker.match(song).hasMatch();
}

QString withoutControlCharacters(const QString &text)
{
    QString out = text;
    for (QChar &c : out) {
        const char16_t u = c.unicode();
        if (u < 0x20 || (u >= 0x7F && u <= 0x9F) || u == 0x2028 || u == 0x2029)
            c = QLatin1Char(' ');
    }
    return out.trimmed();
}

} // namespace TrackTitle
