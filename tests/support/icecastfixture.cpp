#include "icecastfixture.h"

#include "testenv.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>
#include <QUuid>

#include <chrono>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace {

// Everything on 127.0.0.1; logs at "information" level, which is what a failing test
// wants to see.
const char kConfigTemplate[] = R"(<icecast>
  <hostname>127.0.0.1</hostname>
  <location>loopback</location>
  <admin>tests@localhost</admin>
  <limits>
    <clients>1000</clients>
    <sources>16</sources>
    <queue-size>1048576</queue-size>
    <client-timeout>30</client-timeout>
    <header-timeout>15</header-timeout>
    <source-timeout>10</source-timeout>
    <burst-on-connect>1</burst-on-connect>
    <burst-size>@BURST@</burst-size>
  </limits>
  <authentication>
    <source-password>@SOURCEPASSWORD@</source-password>
    <relay-password>@SOURCEPASSWORD@</relay-password>
    <admin-user>admin</admin-user>
    <admin-password>@ADMINPASSWORD@</admin-password>
  </authentication>
  <listen-socket>
    <port>@PORT@</port>
    <bind-address>127.0.0.1</bind-address>
  </listen-socket>
  <fileserve>1</fileserve>
  <paths>
    <basedir>@BASEDIR@</basedir>
    <logdir>@LOGDIR@</logdir>
    <webroot>/usr/share/icecast2/web</webroot>
    <adminroot>/usr/share/icecast2/admin</adminroot>
  </paths>
  <logging>
    <accesslog>access.log</accesslog>
    <errorlog>error.log</errorlog>
    <loglevel>3</loglevel>
  </logging>
  <security>
    <chroot>0</chroot>
    @CHANGEOWNER@
  </security>
</icecast>
)";

constexpr int kStartTimeoutMs = 10000;
constexpr int kSampleRate = 44100;

qint64 steadyNowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

QString findTool(const char *name)
{
    return QStandardPaths::findExecutable(QString::fromLatin1(name));
}

QByteArray xmlEscaped(const QString &text)
{
    return text.toHtmlEscaped().toUtf8();
}

// A port nobody listens on right now. Another program may take it before icecast2 binds
// it; start() retries with a fresh one when that happens.
quint16 freeLoopbackPort()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0))
        return 0;
    return probe.serverPort();
}

int parseStatus(const QByteArray &head)
{
    // "HTTP/1.0 200 OK" or "ICY 200 OK"
    const QList<QByteArray> parts = head.left(head.indexOf("\r\n")).split(' ');
    return parts.size() >= 2 ? parts[1].toInt() : 0;
}

bool handToIcecastUser(const QString &folder, QString *error)
{
    const passwd *user = ::getpwnam("icecast2");
    const group *grp = ::getgrnam("icecast");
    if (!user || !grp) {
        *error = QStringLiteral("running as root, icecast2 needs the user icecast2 and the group icecast");
        return false;
    }
    QStringList paths { folder };
    for (const QFileInfo &info : QDir(folder).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot))
        paths << info.absoluteFilePath();
    for (const QString &path : std::as_const(paths)) {
        if (::chown(QFile::encodeName(path).constData(), user->pw_uid, grp->gr_gid) != 0) {
            *error = QStringLiteral("cannot hand %1 to icecast2").arg(path);
            return false;
        }
    }
    return true;
}

// Asks a fixture's worker thread to finish and waits for it.
void joinWorker(std::atomic<bool> &stopRequested, std::unique_ptr<QThread> &thread)
{
    stopRequested = true;
    if (thread) {
        thread->wait();
        thread.reset();
    }
}

} // namespace

std::optional<LoopbackReply> loopbackGet(
    quint16 port, const QByteArray &target, const QByteArray &basicAuth, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    if (!socket.waitForConnected(int(deadline.remainingTime())))
        return std::nullopt;
    QByteArray request = "GET " + target + " HTTP/1.0\r\nHost: 127.0.0.1:" + QByteArray::number(port)
        + "\r\nUser-Agent: orvida-tests\r\n";
    if (!basicAuth.isEmpty())
        request += "Authorization: Basic " + basicAuth.toBase64() + "\r\n";
    socket.write(request + "\r\n");
    QByteArray data;
    // HTTP/1.0: the server closes the connection after the answer.
    while (!deadline.hasExpired() && socket.waitForReadyRead(int(std::max<qint64>(1, deadline.remainingTime()))))
        data += socket.readAll();
    data += socket.readAll();
    if (socket.state() == QAbstractSocket::ConnectedState)
        return std::nullopt;
    const qsizetype split = data.indexOf("\r\n\r\n");
    if (split < 0)
        return std::nullopt;
    LoopbackReply reply;
    reply.head = data.left(split);
    reply.body = data.mid(split + 4);
    reply.status = parseStatus(reply.head);
    return reply;
}

QByteArray withoutId3v2Tag(const QByteArray &file)
{
    if (!file.startsWith("ID3") || file.size() < 10)
        return file;
    // Ten header bytes, then a syncsafe size: seven bits in each of four bytes.
    const qint64 size = (qint64(file[6] & 0x7f) << 21) | (qint64(file[7] & 0x7f) << 14) | (qint64(file[8] & 0x7f) << 7)
        | qint64(file[9] & 0x7f);
    return file.mid(10 + size);
}

// ---- IcecastFixture ----

QString IcecastFixture::missingTools()
{
    QStringList missing;
    for (const char *tool : { "icecast2", "ffmpeg", "ffprobe" }) {
        if (findTool(tool).isEmpty())
            missing << QString::fromLatin1(tool);
    }
    if (missing.isEmpty())
        return {};
    return QStringLiteral("not installed: %1 (scripts/bootstrap installs them)")
        .arg(missing.join(QStringLiteral(", ")));
}

IcecastFixture::IcecastFixture()
    : m_dir(QDir::tempPath() + QStringLiteral("/orvida-icecast-XXXXXX"))
    , m_sourcePassword(QUuid::createUuid().toString(QUuid::Id128))
    , m_adminPassword(QUuid::createUuid().toString(QUuid::Id128))
{
}

IcecastFixture::~IcecastFixture()
{
    stop();
}

bool IcecastFixture::start(QString *error, int burstBytes)
{
    QString why;
    // The free port can be taken between our probe and icecast2's bind: try a few.
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (startOnce(&why, burstBytes))
            return true;
        stop();
    }
    if (error)
        *error = why;
    return false;
}

bool IcecastFixture::startOnce(QString *error, int burstBytes)
{
    const QString icecast = findTool("icecast2");
    if (icecast.isEmpty() || !m_dir.isValid()) {
        *error = icecast.isEmpty() ? QStringLiteral("icecast2 not found") : QStringLiteral("no temporary folder");
        return false;
    }
    m_port = freeLoopbackPort();
    if (m_port == 0) {
        *error = QStringLiteral("no free loopback port");
        return false;
    }
    const QString logDir = m_dir.filePath(QStringLiteral("log"));
    QDir().mkpath(logDir);
    QFile::remove(logDir + QStringLiteral("/error.log"));
    const bool asRoot = ::geteuid() == 0;

    QByteArray config = kConfigTemplate;
    // icecast2 refuses to run as root; it drops to its own user after binding the port.
    config.replace(
        "@CHANGEOWNER@", asRoot ? "<changeowner><user>icecast2</user><group>icecast</group></changeowner>" : "");
    config.replace("@PORT@", QByteArray::number(m_port));
    config.replace("@BURST@", QByteArray::number(burstBytes));
    config.replace("@SOURCEPASSWORD@", xmlEscaped(m_sourcePassword));
    config.replace("@ADMINPASSWORD@", xmlEscaped(m_adminPassword));
    config.replace("@BASEDIR@", xmlEscaped(m_dir.path()));
    config.replace("@LOGDIR@", xmlEscaped(logDir));
    const QString configPath = m_dir.filePath(QStringLiteral("icecast.xml"));
    {
        QFile file(configPath);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(config) != config.size()) {
            *error = QStringLiteral("cannot write %1").arg(configPath);
            return false;
        }
    }
    // It opens its logs after dropping to its own user, so that user must own the folder.
    if (asRoot && !handToIcecastUser(m_dir.path(), error))
        return false;

    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setStandardInputFile(QProcess::nullDevice());
    m_process.start(icecast, { QStringLiteral("-c"), configPath });
    if (!m_process.waitForStarted(kStartTimeoutMs)) {
        *error = QStringLiteral("icecast2 did not start: ") + m_process.errorString();
        return false;
    }
    const QDeadlineTimer deadline(kStartTimeoutMs);
    while (!deadline.hasExpired()) {
        if (m_process.state() == QProcess::NotRunning) {
            *error = QStringLiteral("icecast2 exited: ") + QString::fromUtf8(m_process.readAll()) + errorLog();
            return false;
        }
        const auto reply = loopbackGet(m_port, "/status-json.xsl", {}, 1000);
        if (reply && reply->status == 200)
            return true;
        QThread::msleep(50);
    }
    *error = QStringLiteral("icecast2 did not answer on port %1: %2").arg(m_port).arg(errorLog());
    return false;
}

bool IcecastFixture::isRunning() const
{
    return m_process.state() == QProcess::Running;
}

void IcecastFixture::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

QString IcecastFixture::streamUrl(const QString &mount) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(mount);
}

QString IcecastFixture::sourceUrl(const QString &mount) const
{
    return QStringLiteral("icecast://source:%1@127.0.0.1:%2%3").arg(m_sourcePassword).arg(m_port).arg(mount);
}

QString IcecastFixture::errorLog() const
{
    QFile file(m_dir.filePath(QStringLiteral("log/error.log")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll().right(4000));
}

QByteArray IcecastFixture::adminAuth() const
{
    return "admin:" + m_adminPassword.toUtf8();
}

bool IcecastFixture::setTitle(const QString &mount, const QString &title) const
{
    const QByteArray target = "/admin/metadata?mount=" + QUrl::toPercentEncoding(mount)
        + "&mode=updinfo&charset=UTF-8&song=" + QUrl::toPercentEncoding(title);
    const auto reply = loopbackGet(m_port, target, adminAuth(), 3000);
    return reply && reply->status == 200 && reply->body.contains("successful");
}

// ---- Broadcast ----

Broadcast::Broadcast(const IcecastFixture &server, QList<BroadcastSong> programme, Options options)
    : m_server(server)
    , m_programme(std::move(programme))
    , m_options(std::move(options))
    , m_dir(QDir::tempPath() + QStringLiteral("/orvida-broadcast-XXXXXX"))
{
    double at = 0;
    for (int i = 0; i < m_programme.size(); ++i) {
        PlayedSong played;
        played.song = m_programme[i];
        played.index = i;
        played.startSec = at;
        at += m_programme[i].durationSec;
        played.endSec = at;
        m_log.append(played);
    }
}

Broadcast::~Broadcast()
{
    stop();
}

bool Broadcast::start(QString *error)
{
    QString why;
    const QString ffmpeg = findTool("ffmpeg");
    const QString wav = m_dir.filePath(QStringLiteral("programme.wav"));
    if (m_programme.isEmpty() || ffmpeg.isEmpty() || !m_dir.isValid()) {
        why = QStringLiteral("nothing to play, no ffmpeg or no temporary folder");
    } else {
        // One sine source per song, joined into one file; frames of 441 samples so every
        // song lasts exactly its duration to the hundredth of a second.
        QStringList args = QStringLiteral("-hide_banner -nostdin -loglevel error -y").split(u' ');
        QString inputs;
        for (int i = 0; i < m_programme.size(); ++i) {
            args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
                 << QStringLiteral("sine=frequency=%1:sample_rate=%2:samples_per_frame=441:duration=%3")
                        .arg(m_programme[i].toneHz)
                        .arg(kSampleRate)
                        .arg(m_programme[i].durationSec, 0, 'f', 2);
            inputs += QStringLiteral("[%1:a]").arg(i);
        }
        args << QStringLiteral("-filter_complex")
             << inputs + QStringLiteral("concat=n=%1:v=0:a=1,aformat=channel_layouts=stereo").arg(m_programme.size())
             << QStringLiteral("-c:a") << QStringLiteral("pcm_s16le") << wav;
        (void)runProgram(ffmpeg, args, &why, 60000); // says why when it fails
    }
    if (why.isEmpty()) {
        m_thread.reset(QThread::create([this] { run(); }));
        m_thread->start();
        const bool up = waitUntil(
            [this] {
                const QMutexLocker lock(&m_mutex);
                return m_log.first().titleSetSec >= 0 || m_finished.load();
            },
            15000);
        const QMutexLocker lock(&m_mutex);
        if (!up || m_log.first().titleSetSec < 0)
            why = QStringLiteral("the source did not come up: ") + QString::fromUtf8(m_diagnostics.right(2000))
                + m_server.errorLog();
    }
    if (!why.isEmpty()) {
        stop();
        if (error)
            *error = why;
        return false;
    }
    return true;
}

void Broadcast::run()
{
    QStringList args = QStringLiteral("-hide_banner -nostdin -loglevel warning -re -i").split(u' ');
    args << m_dir.filePath(QStringLiteral("programme.wav"));
    // No ID3 header and no Xing frame in MP3: a radio stream is bare frames.
    args << (m_options.codec == BroadcastCodec::Mp3
                 ? QStringLiteral("-c:a libmp3lame -id3v2_version 0 -write_xing 0 -content_type audio/mpeg -f mp3")
                 : QStringLiteral("-c:a aac -content_type audio/aac -f adts"))
                .split(u' ');
    args << QStringLiteral("-b:a") << QStringLiteral("%1k").arg(m_options.bitrateKbps);
    // Every packet goes out at once: buffered output would run the source clock ahead of
    // what icecast has, and titles would be set before their audio got there.
    args << QStringLiteral("-flush_packets 1 -progress pipe:1 -stats_period 0.05").split(u' ')
         << m_server.sourceUrl(m_options.mount);

    QProcess source;
    source.setStandardInputFile(QProcess::nullDevice());
    source.start(findTool("ffmpeg"), args);
    if (!source.waitForStarted(10000)) {
        const QMutexLocker lock(&m_mutex);
        m_diagnostics += "ffmpeg did not start: " + source.errorString().toUtf8();
        m_finished = true;
        return;
    }
    QByteArray pending;
    while (!m_stopRequested.load()) {
        source.waitForReadyRead(10);
        pending += source.readAllStandardOutput();
        qsizetype newline;
        while ((newline = pending.indexOf('\n')) >= 0) {
            handleProgressLine(pending.left(newline).trimmed());
            pending.remove(0, newline + 1);
        }
        if (const QByteArray err = source.readAllStandardError(); !err.isEmpty()) {
            const QMutexLocker lock(&m_mutex);
            m_diagnostics += err;
        }
        setDueTitles();
        if (source.state() == QProcess::NotRunning)
            break;
    }
    if (source.state() != QProcess::NotRunning) {
        source.terminate();
        if (!source.waitForFinished(3000)) {
            source.kill();
            source.waitForFinished(3000);
        }
    }
    const QMutexLocker lock(&m_mutex);
    m_diagnostics += source.readAllStandardError();
    m_finished = true;
}

void Broadcast::handleProgressLine(const QByteArray &line)
{
    if (!line.startsWith("out_time_us="))
        return;
    bool ok = false;
    const qint64 outUs = line.mid(12).toLongLong(&ok);
    if (!ok || outUs <= 0)
        return;
    const qint64 origin = steadyNowNs() - outUs * 1000;
    const QMutexLocker lock(&m_mutex);
    if (!m_originNs || origin < *m_originNs)
        m_originNs = origin;
}

void Broadcast::setDueTitles()
{
    for (;;) {
        const double now = sourceTimeSec();
        if (now < 0)
            return;
        int due = -1;
        QString title;
        {
            const QMutexLocker lock(&m_mutex);
            for (const PlayedSong &played : std::as_const(m_log)) {
                if (played.titleSetSec >= 0)
                    continue;
                if (now >= played.startSec + m_options.titleDelaySec) {
                    due = played.index;
                    title = played.song.title;
                }
                break;
            }
        }
        // Until the source has connected the mount does not exist; the next round retries.
        if (due < 0 || !m_server.setTitle(m_options.mount, title))
            return;
        const double setAt = sourceTimeSec();
        const QMutexLocker lock(&m_mutex);
        m_log[due].titleSetSec = setAt;
        m_log[due].titleSetAt = QDateTime::currentDateTimeUtc();
    }
}

void Broadcast::stop()
{
    joinWorker(m_stopRequested, m_thread);
}

double Broadcast::sourceTimeSec() const
{
    const QMutexLocker lock(&m_mutex);
    if (!m_originNs)
        return -1;
    return double(steadyNowNs() - *m_originNs) / 1e9;
}

QList<PlayedSong> Broadcast::log() const
{
    const QMutexLocker lock(&m_mutex);
    return m_log;
}

QByteArray Broadcast::sourceDiagnostics() const
{
    const QMutexLocker lock(&m_mutex);
    return m_diagnostics;
}

// ---- StreamCapture ----

StreamCapture::StreamCapture(quint16 port, QString mount)
    : m_port(port)
    , m_mount(std::move(mount))
{
}

StreamCapture::~StreamCapture()
{
    stop();
}

bool StreamCapture::start(QString *error)
{
    m_thread.reset(QThread::create([this] { run(); }));
    m_thread->start();
    const QDeadlineTimer deadline(10000);
    while (m_status.load() == 0 && !deadline.hasExpired())
        QThread::msleep(5);
    if (m_status.load() == 200)
        return true;
    if (error)
        *error = QStringLiteral("listening to %1 failed: %2").arg(m_mount, QString::fromUtf8(responseHead()));
    stop();
    return false;
}

void StreamCapture::run()
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, m_port);
    if (!socket.waitForConnected(5000)) {
        m_status = -1;
        return;
    }
    socket.write("GET " + QUrl::toPercentEncoding(m_mount, "/")
        + " HTTP/1.0\r\nHost: 127.0.0.1:" + QByteArray::number(m_port) + "\r\nUser-Agent: orvida-capture\r\n\r\n");
    QByteArray head;
    bool inBody = false;
    while (!m_stopRequested.load()) {
        if (!socket.waitForReadyRead(20)) {
            if (socket.state() != QAbstractSocket::ConnectedState)
                break;
            continue;
        }
        const QByteArray data = socket.readAll();
        if (inBody) {
            const QMutexLocker lock(&m_mutex);
            m_audio += data;
            continue;
        }
        head += data;
        const qsizetype split = head.indexOf("\r\n\r\n");
        if (split < 0)
            continue;
        inBody = true;
        {
            const QMutexLocker lock(&m_mutex);
            m_head = head.left(split);
            m_audio = head.mid(split + 4);
        }
        m_status = parseStatus(head);
    }
    if (m_status.load() == 0)
        m_status = -1;
}

void StreamCapture::stop()
{
    joinWorker(m_stopRequested, m_thread);
}

QByteArray StreamCapture::audio() const
{
    const QMutexLocker lock(&m_mutex);
    return m_audio;
}

QByteArray StreamCapture::responseHead() const
{
    const QMutexLocker lock(&m_mutex);
    return m_head;
}
