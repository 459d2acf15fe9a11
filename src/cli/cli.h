#pragma once

#include <QJsonValue>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

class HttpClient;

// Exit codes of the command-line contract.
enum ExitCode : int {
    kExitOk = 0,
    kExitFailure = 1, // one line on stderr says what went wrong
    kExitUsage = 2,   // usage text on stderr
    kExitGaveUp = 3,  // record, listen: the stream was lost, or the address is none
};

// The long-lived services one orvida-cli invocation may need, created on first use on
// the main thread and torn down in reverse order when the command returns. Commands
// take what they need from here instead of building their own.
class CliServices {
public:
    CliServices();
    ~CliServices();

    HttpClient &http();

    // Registers a service built by a command module so it is destroyed in order with the
    // others (last created, first destroyed).
    template <typename T, typename... Args>
    T &make(Args &&...args)
    {
        auto owned = std::make_shared<T>(std::forward<Args>(args)...);
        T &ref = *owned;
        m_owned.push_back(std::move(owned));
        return ref;
    }

private:
    std::vector<std::shared_ptr<void>> m_owned;
    HttpClient *m_http = nullptr;
};

// Parsed arguments of one command: positionals in order and --options.
struct CliArgs {
    QStringList positional;
    QHash<QString, QString> options; // "--name VALUE" -> options["name"]
    bool json = false;               // --json

    [[nodiscard]] bool has(const QString &name) const { return options.contains(name); }
    [[nodiscard]] QString value(const QString &name) const { return options.value(name); }
};

namespace Cli {

// Splits `args` into positionals and options. `valued` lists the options that take a
// value; `--json` is accepted when `allowJson`. Unknown options, a missing value or a
// positional count outside [minPositional, maxPositional] are usage errors.
[[nodiscard]] std::optional<CliArgs> parse(const QStringList &args, const QStringList &valued, bool allowJson,
                                           int minPositional, int maxPositional, QString *error);

// Prints `message` and the command's usage on stderr; returns kExitUsage.
int usageError(const QString &usage, const QString &message = {});
// Prints one line on stderr; returns kExitFailure.
int fail(const QString &line);
// One line on stderr that is no failure (damaged state that was set aside); nothing
// when `line` is empty.
void note(const QString &line);

void out(const QString &line);          // one line on stdout, flushed
void printJson(const QJsonValue &value); // one JSON document on stdout

// Runs the event loop until `done` is set (by a callback), then returns.
void waitUntilDone(const bool &done);

// Starts an asynchronous operation that reports one value through a callback, and runs
// the event loop until it has: `start(context, deliver)` must call `deliver` once on
// `context`'s thread.
template <typename T, typename Start>
T await(Start start)
{
    QObject context;
    bool done = false;
    T result{};
    start(&context, [&](T value) {
        result = std::move(value);
        done = true;
    });
    waitUntilDone(done);
    return result;
}

// Command registry: each command module registers its top-level commands.
using Command = std::function<int(CliServices &, const QStringList &args)>;
struct Registration {
    Registration(const char *name, const char *usage, Command command);
};
const QStringList &usageLines();

} // namespace Cli
