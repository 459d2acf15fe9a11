#include "platform/preferences.h"

#include "platform/filelock.h"
#include "platform/paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStringDecoder>
#include <QTemporaryFile>
#include <QtDebug>

namespace Preferences {

namespace {

// QSettings' INI back end treats '/' as a group separator and '\' specially; our keys
// are dotted ("ov.engine.global") and pass through unchanged.
QSettings open()
{
    return QSettings(Paths::preferencesFile(), QSettings::IniFormat);
}

// QSettings only says that a write failed; a test write beside the file finds out why.
QString whyNotWritable(const QString &path)
{
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder))
        return QStringLiteral("cannot create the folder %1").arg(folder);
    QTemporaryFile probe(folder + QStringLiteral("/.probe-XXXXXX"));
    if (!probe.open())
        return probe.errorString();
    const QByteArray block(4096, '\n');
    if (probe.write(block) != block.size() || !probe.flush())
        return probe.errorString();
    return QStringLiteral("the file cannot be replaced");
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

bool looksLikeIni(const QByteArray &content)
{
    if (content.contains('\0'))
        return false;
    QStringDecoder utf8(QStringDecoder::Utf8);
    const QString text = utf8(content);
    if (utf8.hasError())
        return false;
    for (QStringView line : QStringView(text).split(QLatin1Char('\n'))) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char(';')) || line.startsWith(QLatin1Char('#')))
            continue;
        if (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']')))
            continue;
        if (line.indexOf(QLatin1Char('=')) > 0)
            continue;
        return false;
    }
    return true;
}

StateResult edit(const std::function<void(QSettings &)> &change, const std::function<bool(QSettings &)> &isDamaged)
{
    const QString path = Paths::preferencesFile();
    // The lock file lives beside the preferences; a write is coming, so the folder may be made now.
    (void)QDir().mkpath(QFileInfo(path).absolutePath());
    FileLock lock(StateFile(path).lockPath());
    if (lock.lock(StateFile::kLockWaitMs) == FileLock::Result::Busy)
        return StateResult::failure(
            QStringLiteral("%1 is locked by another process that did not let go; nothing was written").arg(path));

    StateResult result;
    bool damaged = false;
    if (QFile file(path); file.open(QIODevice::ReadOnly))
        damaged = !looksLikeIni(file.read(StateFile::kMaxBytes));
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() == QSettings::AccessError && QFileInfo::exists(path))
        return StateResult::failure(QStringLiteral("cannot read %1; nothing was written").arg(path));
    // Decided before anything is set: a QSettings writes what it was given when it goes.
    damaged = damaged || (isDamaged && isDamaged(settings));
    if (damaged) {
        QString error;
        const auto copy = StateFile::copyAside(path, &error);
        if (!copy)
            return StateResult::failure(error);
        result.notice = QStringLiteral("%1 was damaged; it was kept as %2 and what could be read of it stays in use")
                            .arg(path, *copy);
    }
    change(settings);
    settings.sync();
    if (settings.status() == QSettings::AccessError)
        return StateResult::failure(QStringLiteral("cannot write %1: %2").arg(path, whyNotWritable(path)), result.notice);
    return result;
}

StateResult store(const QString &key, const QVariant &value)
{
    return edit([&](QSettings &settings) { settings.setValue(key, value); });
}

StateResult erase(const QString &key)
{
    return edit([&](QSettings &settings) { settings.remove(key); });
}

void setValue(const QString &key, const QVariant &value)
{
    if (const StateResult written = store(key, value); !written)
        qWarning().noquote() << written.error;
}

void remove(const QString &key)
{
    if (const StateResult written = erase(key); !written)
        qWarning().noquote() << written.error;
}

std::optional<QByteArray> bytesOf(const QVariant &v)
{
    if (v.typeId() == QMetaType::QByteArray)
        return v.toByteArray();
    // Values written by hand into the INI file come back as strings.
    if (v.typeId() == QMetaType::QString)
        return v.toString().toUtf8();
    return std::nullopt;
}

std::optional<QByteArray> bytes(const QString &key)
{
    return bytesOf(value(key));
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
