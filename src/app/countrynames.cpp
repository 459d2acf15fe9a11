#include "app/countrynames.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QtEndian>

namespace {

// "The United Kingdom Of Great Britain…" and "United Kingdom of Great Britain…" meet here.
QString normalised(const QString &name)
{
    QString key = name.simplified().toCaseFolded();
    if (key.startsWith(QStringLiteral("the ")))
        key.remove(0, 4);
    return key;
}

QByteArray readPackageFile(const QString &relativePath)
{
    const QString path = QStandardPaths::locate(QStandardPaths::GenericDataLocation, relativePath);
    if (path.isEmpty())
        return {};
    QFile file(path);
    // The catalogues are some ten kilobytes; anything far larger is not one.
    if (!file.open(QIODevice::ReadOnly) || file.size() > 4 * 1024 * 1024)
        return {};
    return file.readAll();
}

const CountryNames::Table &tableFor(Texts::Language language)
{
    static const CountryNames::Table english = CountryNames::buildTable(
        readPackageFile(QStringLiteral("iso-codes/json/iso_3166-1.json")), QByteArray());
    static const CountryNames::Table german =
        CountryNames::buildTable(readPackageFile(QStringLiteral("iso-codes/json/iso_3166-1.json")),
                                 readPackageFile(QStringLiteral("locale/de/LC_MESSAGES/iso_3166-1.mo")));
    return language == Texts::Language::German ? german : english;
}

} // namespace

namespace CountryNames {

QHash<QString, QString> parseCatalogue(const QByteArray &mo)
{
    QHash<QString, QString> out;
    constexpr quint32 kMagic = 0x950412de;
    if (mo.size() < 28)
        return out;
    const auto *bytes = reinterpret_cast<const uchar *>(mo.constData());
    // The writer's byte order: the magic number reads right in one of the two.
    const bool little = qFromLittleEndian<quint32>(bytes) == kMagic;
    if (!little && qFromBigEndian<quint32>(bytes) != kMagic)
        return out;
    auto word = [&](qsizetype at) -> std::optional<quint32> {
        if (at < 0 || at + 4 > mo.size())
            return std::nullopt;
        return little ? qFromLittleEndian<quint32>(bytes + at) : qFromBigEndian<quint32>(bytes + at);
    };
    const quint32 count = *word(8);
    const quint32 originals = *word(12);
    const quint32 translations = *word(16);
    auto string = [&](quint32 table, quint32 index) -> std::optional<QByteArray> {
        const qsizetype entry = qsizetype(table) + qsizetype(index) * 8;
        const std::optional<quint32> length = word(entry);
        const std::optional<quint32> offset = word(entry + 4);
        if (!length || !offset || qsizetype(*offset) + qsizetype(*length) > mo.size())
            return std::nullopt;
        QByteArray text = mo.mid(*offset, *length);
        // Plural forms follow the first behind a NUL.
        if (const qsizetype nul = text.indexOf('\0'); nul >= 0)
            text.truncate(nul);
        return text;
    };
    for (quint32 i = 0; i < count; ++i) {
        std::optional<QByteArray> id = string(originals, i);
        const std::optional<QByteArray> translated = string(translations, i);
        if (!id || !translated)
            return {};
        // The header has the empty msgid; a context is written before the msgid, after EOT.
        if (const qsizetype eot = id->indexOf('\x04'); eot >= 0)
            id->remove(0, eot + 1);
        if (!id->isEmpty() && !translated->isEmpty())
            out.insert(QString::fromUtf8(*id), QString::fromUtf8(*translated));
    }
    return out;
}

Table buildTable(const QByteArray &isoJson, const QByteArray &catalogue)
{
    Table table;
    const QHash<QString, QString> translated = parseCatalogue(catalogue);
    const QJsonArray countries = QJsonDocument::fromJson(isoJson).object().value(QStringLiteral("3166-1")).toArray();
    for (const QJsonValue &value : countries) {
        const QJsonObject country = value.toObject();
        const QString name = country.value(QStringLiteral("name")).toString();
        const QString common = country.value(QStringLiteral("common_name")).toString();
        const QString official = country.value(QStringLiteral("official_name")).toString();
        const QString shortName = common.isEmpty() ? name : common;
        if (shortName.isEmpty())
            continue;
        for (const QString &form : {name, common, official}) {
            if (!form.isEmpty())
                table.shortNames.insert(normalised(form), shortName);
        }
        // The catalogue translates every form; the short one may lack a translation.
        const QString inLanguage = translated.value(shortName, translated.value(name));
        if (!inLanguage.isEmpty())
            table.translations.insert(shortName, inLanguage);
    }
    return table;
}

QString display(const Table &table, const QString &directoryName)
{
    const QString shortName = table.shortNames.value(normalised(directoryName));
    if (shortName.isEmpty())
        return directoryName;
    return table.translations.value(shortName, shortName);
}

QString display(const QString &directoryName, Texts::Language language)
{
    if (directoryName.isEmpty())
        return directoryName;
    return display(tableFor(language), directoryName);
}

} // namespace CountryNames
