#include "app/uilanguage.h"

#include "platform/preferences.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

#include <memory>

namespace {

const QString kEnglish = QStringLiteral("en");
const QString kGerman = QStringLiteral("de");

// Owned here, not by the application object: one installed at a time, replaced on a change.
std::unique_ptr<QTranslator> &installedTranslator()
{
    static std::unique_ptr<QTranslator> translator;
    return translator;
}

} // namespace

namespace UiLanguage {

Choice stored()
{
    const QString value = Preferences::string(QString::fromLatin1(kPreferenceKey)).value_or(QString());
    if (value == kEnglish)
        return Choice::English;
    if (value == kGerman)
        return Choice::German;
    return Choice::System;
}

StateResult store(Choice choice)
{
    const QString key = QString::fromLatin1(kPreferenceKey);
    switch (choice) {
    case Choice::System:
        return Preferences::contains(key) ? Preferences::erase(key) : StateResult();
    case Choice::English:
        return Preferences::store(key, kEnglish);
    case Choice::German:
        return Preferences::store(key, kGerman);
    }
    return {};
}

Texts::Language resolve(Choice choice)
{
    switch (choice) {
    case Choice::English:
        return Texts::Language::English;
    case Choice::German:
        return Texts::Language::German;
    case Choice::System:
        break;
    }
    return Texts::systemLanguage();
}

bool apply(Texts::Language language)
{
    Texts::setLanguage(language);
    std::unique_ptr<QTranslator> &current = installedTranslator();
    if (current) {
        QCoreApplication::removeTranslator(current.get());
        current.reset();
    }
    if (language == Texts::Language::English)
        return true;
    auto translator = std::make_unique<QTranslator>();
    // qtbase alone: the dialogs' buttons and the text fields' menus are all in it.
    if (!translator->load(QStringLiteral("qtbase_de"), QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        return false;
    QCoreApplication::installTranslator(translator.get());
    current = std::move(translator);
    return true;
}

} // namespace UiLanguage
