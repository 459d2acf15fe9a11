#include "cli/cli.h"

#include "platform/httpclient.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

#include <cstdio>

namespace {

struct Entry {
    QString usage;
    Cli::Command command;
};

QMap<QString, Entry> &registry()
{
    static QMap<QString, Entry> commands;
    return commands;
}

} // namespace

CliServices::CliServices() = default;

CliServices::~CliServices()
{
    while (!m_owned.empty())
        m_owned.pop_back();
}

HttpClient &CliServices::http()
{
    if (!m_http)
        m_http = &make<HttpClient>();
    return *m_http;
}

namespace Cli {

std::optional<CliArgs> parse(const QStringList &args, const QStringList &valued, bool allowJson, int minPositional,
                             int maxPositional, QString *error)
{
    CliArgs result;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString &a = args[i];
        if (a == QLatin1String("--json") && allowJson) {
            result.json = true;
        } else if (a.startsWith(QLatin1String("--")) && a.size() > 2) {
            QString name = a.mid(2);
            QString value;
            const qsizetype eq = name.indexOf(QLatin1Char('='));
            const bool inlineValue = eq >= 0;
            if (inlineValue) {
                value = name.mid(eq + 1);
                name = name.left(eq);
            }
            if (!valued.contains(name)) {
                *error = QStringLiteral("unknown option --%1").arg(name);
                return std::nullopt;
            }
            if (!inlineValue) {
                if (i + 1 >= args.size()) {
                    *error = QStringLiteral("--%1 needs a value").arg(name);
                    return std::nullopt;
                }
                value = args[++i];
            }
            result.options.insert(name, value);
        } else {
            result.positional << a;
        }
    }
    if (result.positional.size() < minPositional || result.positional.size() > maxPositional) {
        *error = result.positional.size() < minPositional ? QStringLiteral("missing argument")
                                                          : QStringLiteral("too many arguments");
        return std::nullopt;
    }
    return result;
}

int usageError(const QString &usage, const QString &message)
{
    if (!message.isEmpty())
        std::fprintf(stderr, "orvida-cli: %s\n", qPrintable(message));
    std::fprintf(stderr, "usage: %s\n", qPrintable(usage));
    return kExitUsage;
}

int fail(const QString &line)
{
    QString single = line;
    single.replace(QLatin1Char('\n'), QLatin1Char(' '));
    std::fprintf(stderr, "orvida-cli: %s\n", single.toUtf8().constData());
    return kExitFailure;
}

void note(const QString &line)
{
    if (line.isEmpty())
        return;
    QString single = line;
    single.replace(QLatin1Char('\n'), QLatin1Char(' '));
    std::fprintf(stderr, "orvida-cli: %s\n", single.toUtf8().constData());
}

void out(const QString &line)
{
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void printJson(const QJsonValue &value)
{
    QByteArray bytes;
    if (value.isObject())
        bytes = QJsonDocument(value.toObject()).toJson(QJsonDocument::Indented);
    else if (value.isArray())
        bytes = QJsonDocument(value.toArray()).toJson(QJsonDocument::Indented);
    else // a bare scalar: wrap in an array and cut the brackets off
        bytes = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact).mid(1).chopped(1) + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void waitUntilDone(const bool &done)
{
    while (!done)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

Registration::Registration(const char *name, const char *usage, Command command)
{
    registry().insert(QString::fromLatin1(name), {QString::fromLatin1(usage), std::move(command)});
}

int dispatch(CliServices &services, const QString &name, const QStringList &args)
{
    const auto it = registry().constFind(name);
    if (it == registry().constEnd())
        return -1;
    return it->command(services, args);
}

const QStringList &usageLines()
{
    static QStringList lines = [] {
        QStringList l;
        for (const Entry &e : registry())
            l << e.usage.split(QLatin1Char('\n'));
        return l;
    }();
    return lines;
}

} // namespace Cli
