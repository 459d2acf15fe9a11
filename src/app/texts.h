#pragma once

#include "library/transitionmode.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

// The interface texts of the window in German and English, looked up by their designed
// keys ("fav.added", "engineLeadInHint", ...). The language follows the system locale,
// English otherwise. Error texts that the engine produces as German literals stay so in
// the engine and on the command line; the window shows them through engineMessage().
//
// Read from the GUI thread; the language is chosen once at start (tests may switch it).

// What the transition chooser of the player says, in the current language, from the
// "trans." keys: one name and one hint per mode.
struct TransitionTexts {
    QString title;
    QString crossfadeLength;
    QString automixLength;
    QMap<TransitionMode, QString> names;
    QMap<TransitionMode, QString> hints;
    QString secondsFormat; // %1: whole seconds
    QString helpFormat;    // %1: the mode's name, %2: its hint
};

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

// The transition chooser's texts in the current language.
[[nodiscard]] TransitionTexts transitionTexts();

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
