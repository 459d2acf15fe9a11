#pragma once

#include "app/texts.h"
#include "platform/statefile.h"

// The interface language the user chose in the settings (as the system, English or
// German), kept in the preferences, and putting a language into force: our own texts
// and Qt's (the buttons of its dialogs, the menus of text fields), which come from the
// Qt translations the system has installed. Without them Qt's texts stay English.
//
// GUI thread only: translators are installed on the application.
namespace UiLanguage {

inline constexpr const char *kPreferenceKey = "ov.language";

enum class Choice { System, English, German };

// What the preferences hold; System when nothing or something unknown is stored.
[[nodiscard]] Choice stored();
[[nodiscard]] StateResult store(Choice choice);
[[nodiscard]] Texts::Language resolve(Choice choice);

// Sets the texts' language and swaps Qt's translations to match. Returns whether Qt's
// translations for it could be loaded (always true for English, which needs none).
bool apply(Texts::Language language);

} // namespace UiLanguage
