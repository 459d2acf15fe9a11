#include "platform/preferences.h"

#include "platform/paths.h"

#include <QSettings>

namespace Preferences {

namespace {

// QSettings' INI back end treats '/' as a group separator and '\' specially; our keys
// are dotted ("ov.engine.global") and pass through unchanged.
QSettings open()
{
    return QSettings(Paths::preferencesFile(), QSettings::IniFormat);
}

} // namespace

QVariant value(const QString &key)
{
    return open().value(key);
}

bool contains(const QString &key)
{
    return open().contains(key);
}

void setValue(const QString &key, const QVariant &value)
{
    QSettings settings = open();
    settings.setValue(key, value);
    settings.sync();
}

void remove(const QString &key)
{
    QSettings settings = open();
    settings.remove(key);
    settings.sync();
}

std::optional<QByteArray> bytes(const QString &key)
{
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QByteArray)
        return v.toByteArray();
    // Values written by hand into the INI file come back as strings.
    if (v.typeId() == QMetaType::QString)
        return v.toString().toUtf8();
    return std::nullopt;
}

std::optional<QString> string(const QString &key)
{
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QString)
        return v.toString();
    if (v.typeId() == QMetaType::QByteArray)
        return QString::fromUtf8(v.toByteArray());
    return std::nullopt;
}

std::optional<qint64> integer(const QString &key)
{
    const QVariant v = value(key);
    if (!v.isValid())
        return std::nullopt;
    // INI files store every scalar as text; accept only a whole decimal number.
    bool ok = false;
    const qint64 n = v.toString().toLongLong(&ok);
    if (!ok)
        return std::nullopt;
    return n;
}

} // namespace Preferences
