#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// The interface texts of the window in German and English, looked up by their designed
// keys ("fav.added", "engineLeadInHint", ...). The language follows the system locale,
// English otherwise. Error texts that the engine produces as German literals stay so in
// the engine and on the command line; the window shows them through engineMessage().
//
// Read from the GUI thread; the language is chosen once at start (tests may switch it).
namespace Texts {

enum class Language { English, German };

// German when the system locale's language is German, else English.
[[nodiscard]] Language systemLanguage();
[[nodiscard]] Language language();
void setLanguage(Language language);

// The text of `key` in the current language; English when the key lacks a translation,
// the key itself when it is unknown (so a missing text shows up instead of vanishing).
[[nodiscard]] QString text(const char *key);
[[nodiscard]] bool has(const char *key, Language language);
// Every key there is a text for.
[[nodiscard]] QList<QByteArray> keys();

// An engine error text in the interface language: the German literals the engine
// designs ("Stream unterbrochen", "Ungültige Stream-URL") are translated, any other text
// (the engine's own explanations) is returned as it is.
[[nodiscard]] QString engineMessage(const QString &message);

} // namespace Texts

// Short form for the views.
[[nodiscard]] inline QString tx(const char *key)
{
    return Texts::text(key);
}
