#pragma once

#include "app/texts.h"

#include <QByteArray>
#include <QHash>
#include <QString>

// Country names in the interface language. The directory names countries in English, as
// ISO 3166 does but sometimes with "The" in front and in title case ("The Russian
// Federation"). The desktop's ISO codes package (iso-codes) holds those names with their
// common short forms and, as a gettext catalogue per language, their translations. Without
// the package, or for a name it does not know, the directory's name is shown as it is.
//
// GUI thread: the tables are read on first use and kept.
namespace CountryNames {

// The directory's name in `language`: "Germany" is "Deutschland" in German, "The United
// Kingdom Of Great Britain And Northern Ireland" is "United Kingdom" in English.
[[nodiscard]] QString display(const QString &directoryName, Texts::Language language = Texts::language());

// The names of one language, as the ISO codes package spells them.
struct Table {
    // Normalised name (any of the English forms) to the short English name.
    QHash<QString, QString> shortNames;
    // Short English name to its translation; empty for English.
    QHash<QString, QString> translations;
};
// Builds the table from the package's JSON list of countries and, for a translated
// language, its compiled catalogue (.mo). Pure: the files' bytes come from the caller.
[[nodiscard]] Table buildTable(const QByteArray &isoJson, const QByteArray &catalogue);
[[nodiscard]] QString display(const Table &table, const QString &directoryName);

// Every msgid and its translation of a compiled gettext catalogue; empty when the bytes
// are not one. Context and plural forms are dropped: only the first form is kept.
[[nodiscard]] QHash<QString, QString> parseCatalogue(const QByteArray &mo);

} // namespace CountryNames
