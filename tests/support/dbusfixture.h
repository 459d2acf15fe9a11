#pragma once

#include "platform/dbuslink.h"

#include "testenv.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QFile>
#include <QList>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QString>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

// Collects the messages logged while it lives, so a test can check that something that
// goes missing is reported, and reported once.
class LogCapture {
public:
    LogCapture()
    {
        s_lines.clear();
        m_previous = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture() { qInstallMessageHandler(m_previous); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    [[nodiscard]] static int count(const QString &needle) { return int(s_lines.filter(needle).size()); }
    [[nodiscard]] static QString all() { return s_lines.join(QLatin1Char('\n')); }

private:
    static void handle(QtMsgType, const QMessageLogContext &, const QString &message) { s_lines.append(message); }
    static inline QStringList s_lines;
    QtMessageHandler m_previous = nullptr;
};

// A private dbus-daemon for one test, with python3-dbusmock services on it standing in
// for systemd-logind and the desktop's power services. The daemon listens on a socket in
// a temporary folder; code under test is pointed at address(). The test talks to the
// mocks over its own blocking connection (fine in tests, never in the program).
//
// Header-only so every test binary that needs it can include it without a build change.
class PrivateBus {
public:
    // One row of logind's ListInhibitors.
    struct InhibitorEntry {
        QString what;
        QString who;
        QString why;
        QString mode;
    };
    // One logged call of a dbusmock object.
    struct MockCall {
        QString method;
        QVariantList args;
    };

    // What is missing to run such tests ("" when nothing is). Checked once per process.
    static QString missingTools()
    {
        static const QString missing = [] {
            if (QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty())
                return QStringLiteral("dbus-daemon is not installed (Debian package dbus)");
            if (python().isEmpty())
                return QStringLiteral("python3-dbusmock is not installed");
            return QString();
        }();
        return missing;
    }

    PrivateBus()
    {
        const QString config = m_dir.filePath(QStringLiteral("bus.conf"));
        QFile file(config);
        if (!file.open(QIODevice::WriteOnly))
            return;
        file.write(QStringLiteral(
                       "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
                       "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                       "<busconfig><type>session</type><listen>unix:path=%1</listen><auth>EXTERNAL</auth>"
                       "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                       "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n")
                       .arg(m_dir.filePath(QStringLiteral("bus")))
                       .toUtf8());
        file.close();
        m_daemon.setStandardErrorFile(QProcess::nullDevice());
        m_daemon.start(QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")),
                       {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                        QStringLiteral("--print-address=1")});
        QDeadlineTimer deadline(10000);
        while (!m_daemon.canReadLine() && !deadline.hasExpired() && m_daemon.state() != QProcess::NotRunning)
            m_daemon.waitForReadyRead(100);
        m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
        if (m_address.isEmpty())
            return;
        m_connectionName = QStringLiteral("test-bus-") + m_dir.path().section(QLatin1Char('/'), -1);
        m_connection = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(m_address, m_connectionName));
    }

    ~PrivateBus()
    {
        for (auto &mock : m_mocks) {
            mock->terminate();
            mock->waitForFinished(5000);
        }
        m_connection.reset();
        if (!m_connectionName.isEmpty())
            QDBusConnection::disconnectFromBus(m_connectionName);
        m_daemon.terminate();
        m_daemon.waitForFinished(5000);
    }

    PrivateBus(const PrivateBus &) = delete;
    PrivateBus &operator=(const PrivateBus &) = delete;

    [[nodiscard]] bool ok() const { return m_connection && m_connection->isConnected(); }
    [[nodiscard]] const QString &address() const { return m_address; }
    [[nodiscard]] QDBusConnection &connection() { return *m_connection; }

    // dbusmock's logind template; true once it owns its name.
    bool startLogind() { return startMock({QStringLiteral("--template"), QStringLiteral("logind")}, kLogind); }

    // dbusmock's notification_daemon template; true once it owns its name.
    bool startNotificationDaemon()
    {
        return startMock({QStringLiteral("--template"), QStringLiteral("notification_daemon")}, kNotifications);
    }

    // A bare dbusmock object (`name` at `path`, main interface `interface`); give it
    // methods with addMethod().
    bool startMock(const QString &name, const QString &path, const QString &interface)
    {
        return startMock({QStringLiteral("--session"), name, path, interface}, name);
    }

    // dbusmock's AddMethod: `code` is Python run per call with `args`, setting `ret`.
    bool addMethod(const QString &name, const QString &path, const QString &interface, const QString &method,
                   const QString &inSig, const QString &outSig, const QString &code)
    {
        return call(name, path, kMockInterface, QStringLiteral("AddMethod"),
                    {interface, method, inSig, outSig, code})
                   .type()
            == QDBusMessage::ReplyMessage;
    }

    QDBusMessage call(const QString &name, const QString &path, const QString &interface, const QString &method,
                      const QVariantList &args = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(name, path, interface, method);
        message.setArguments(args);
        return m_connection->call(message, QDBus::Block, 10000);
    }

    std::optional<QList<InhibitorEntry>> listInhibitors()
    {
        const QDBusMessage reply =
            call(kLogind, kLogindPath, QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("ListInhibitors"));
        if (reply.type() != QDBusMessage::ReplyMessage)
            return std::nullopt;
        QList<InhibitorEntry> entries;
        const QDBusArgument array = reply.arguments().value(0).value<QDBusArgument>();
        array.beginArray();
        while (!array.atEnd()) {
            InhibitorEntry entry;
            uint uid = 0;
            uint pid = 0;
            array.beginStructure();
            array >> entry.what >> entry.who >> entry.why >> entry.mode >> uid >> pid;
            array.endStructure();
            entries.append(entry);
        }
        array.endArray();
        return entries;
    }

    // Polls ListInhibitors until `matches` holds for its rows (logind learns of a closed
    // lock when its end of the pipe hangs up, a moment after our close()).
    template<typename Predicate>
    bool waitForInhibitors(Predicate matches, int timeoutMs = 5000)
    {
        QDeadlineTimer deadline(timeoutMs);
        for (;;) {
            const auto entries = listInhibitors();
            if (entries && matches(*entries))
                return true;
            if (deadline.hasExpired())
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            QThread::msleep(10);
        }
    }

    bool emitPrepareForSleep(bool start)
    {
        return call(kLogind, kLogindPath, kMockInterface, QStringLiteral("EmitSignal"),
                    {QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"),
                     QStringLiteral("b"), QVariant::fromValue(QVariantList{QVariant::fromValue(QDBusVariant(start))})})
                   .type()
            == QDBusMessage::ReplyMessage;
    }

    // The calls a dbusmock object has logged so far.
    QList<MockCall> calls(const QString &name, const QString &path)
    {
        QList<MockCall> result;
        const QDBusMessage reply = call(name, path, kMockInterface, QStringLiteral("GetCalls"));
        if (reply.type() != QDBusMessage::ReplyMessage)
            return result;
        const QDBusArgument array = reply.arguments().value(0).value<QDBusArgument>();
        array.beginArray();
        while (!array.atEnd()) {
            MockCall entry;
            qulonglong timestamp = 0;
            array.beginStructure();
            array >> timestamp >> entry.method >> entry.args;
            array.endStructure();
            for (QVariant &arg : entry.args) {
                if (arg.canConvert<QDBusVariant>())
                    arg = arg.value<QDBusVariant>().variant();
            }
            result.append(entry);
        }
        array.endArray();
        return result;
    }

    // The Notify calls the notification daemon has logged so far.
    QList<MockCall> notifyCalls()
    {
        QList<MockCall> result;
        for (const MockCall &logged : calls(kNotifications, kNotificationsPath)) {
            if (logged.method == QStringLiteral("Notify"))
                result.append(logged);
        }
        return result;
    }

    static inline const QString kLogind = QStringLiteral("org.freedesktop.login1");
    static inline const QString kLogindPath = QStringLiteral("/org/freedesktop/login1");
    static inline const QString kNotifications = QStringLiteral("org.freedesktop.Notifications");
    static inline const QString kNotificationsPath = QStringLiteral("/org/freedesktop/Notifications");
    static inline const QString kMockInterface = QStringLiteral("org.freedesktop.DBus.Mock");

private:
    static QString python()
    {
        // Debian's own interpreter first: a python3 earlier on PATH (pyenv, venv) does not
        // see the packaged module.
        for (const QString &candidate :
             {QStringLiteral("/usr/bin/python3"), QStandardPaths::findExecutable(QStringLiteral("python3"))}) {
            if (candidate.isEmpty())
                continue;
            QProcess probe;
            probe.start(candidate, {QStringLiteral("-c"), QStringLiteral("import dbusmock")});
            if (probe.waitForFinished(10000) && probe.exitStatus() == QProcess::NormalExit && probe.exitCode() == 0)
                return candidate;
        }
        return {};
    }

    bool startMock(const QStringList &arguments, const QString &name)
    {
        if (!ok())
            return false;
        auto mock = std::make_unique<QProcess>();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), m_address);
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_address);
        mock->setProcessEnvironment(env);
        mock->setStandardOutputFile(QProcess::nullDevice());
        mock->setStandardErrorFile(m_dir.filePath(QStringLiteral("mock-%1.log").arg(m_mocks.size())));
        mock->start(python(), QStringList{QStringLiteral("-m"), QStringLiteral("dbusmock")} + arguments);
        m_mocks.push_back(std::move(mock));
        QDeadlineTimer deadline(15000);
        while (!m_connection->interface()->isServiceRegistered(name)) {
            if (deadline.hasExpired() || m_mocks.back()->state() == QProcess::NotRunning)
                return false;
            QThread::msleep(20);
        }
        return true;
    }

    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_address;
    QString m_connectionName;
    std::unique_ptr<QDBusConnection> m_connection;
    std::vector<std::unique_ptr<QProcess>> m_mocks;
};

// A fresh private bus for every test of the fixture; the test is skipped, saying why,
// where dbus-daemon or python3-dbusmock are missing. Subclasses that set up more call
// this SetUp first and return when it skipped or failed.
class PrivateBusTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (const QString missing = PrivateBus::missingTools(); !missing.isEmpty())
            GTEST_SKIP() << "needs a private D-Bus with dbusmock services: " << missing.toStdString();
        m_bus = std::make_unique<PrivateBus>();
        ASSERT_TRUE(m_bus->ok()) << "private dbus-daemon did not start";
    }

    [[nodiscard]] bool setUpFailed() const { return IsSkipped() || HasFatalFailure(); }
    PrivateBus &bus() { return *m_bus; }

    // A link to the private bus standing in for the program's `busName` bus, connected
    // before it is handed out.
    std::unique_ptr<DBusLink> connectedLink(const QString &busName = QStringLiteral("session"))
    {
        auto link = std::make_unique<DBusLink>(m_bus->address(), busName);
        EXPECT_TRUE(waitUntil([&] { return link->state() != DBusLink::State::Connecting; }));
        EXPECT_EQ(link->state(), DBusLink::State::Connected);
        return link;
    }

    std::unique_ptr<PrivateBus> m_bus;
};

// The same with logind mocked on the bus and a link to it standing in for the program's
// system bus.
class LogindBusTest : public PrivateBusTest {
protected:
    void SetUp() override
    {
        PrivateBusTest::SetUp();
        if (setUpFailed())
            return;
        ASSERT_TRUE(bus().startLogind());
        m_system = std::make_unique<DBusLink>(bus().address(), QStringLiteral("system"));
    }

    std::unique_ptr<DBusLink> m_system;
};
