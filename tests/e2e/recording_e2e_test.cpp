// orvida-cli record, the real binary, against a real icecast2 that an ffmpeg source feeds
// with a programme of songs, each a tone of its own. Every recording is decoded and
// listened to: a file must hold its own song throughout, and at its edges no more of the
// neighbouring songs than the title's travel time (and the padding) explains.
//
// Several recorders, each with a home of its own and its own engine settings, listen to
// one broadcast at once, so the whole suite takes about as long as two programmes.

#include "audiocheck.h"
#include "clirunner.h"
#include "fixtureserver.h"
#include "icecastfixture.h"
#include "testenv.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrlQuery>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

constexpr double kWindowSec = 0.1;
// What one song change may blur in the decoded audio: the window it falls into and the
// encoder's smear around it.
constexpr double kEdgeSec = 0.25;
// icecast's metadata interval: 16000 bytes, one second at 128 kbit/s. A title reaches the
// listener at the first interval boundary after icecast took it.
constexpr qint64 kMetaint = 16000;
constexpr qint64 kBytesPerSec = 16000;
constexpr double kMetaintSec = 1.0;

const QString kStationName = QStringLiteral("Radio Testfunk");

struct Song {
    QString title; // the stream title
    QString artist; // and how it splits
    QString name;
    QString fileName; // under the default name pattern, without extension
    QString album; // what the store fixture answers for it
    double toneHz = 0;
    double durationSec = 0;
};

// Titles as stations send them: a colon and a question mark (not allowed in file names),
// an apostrophe inside the title (the ICY block closes with "';"), more than one " - ",
// and letters beyond ASCII (icecast passes them on to MP3 listeners as Latin-1).
// Tones that are no simple fraction of the frame rate, so no stretch of encoded audio
// repeats and every recording has exactly one place in the stream. Every recorded file
// of these songs is longer than 131072 bytes: ffprobe, which the checks read files with,
// mistakes shorter MP3 files that begin inside a frame (as a byte-exact cut does) for
// H.263 about every third time.
QList<Song> mp3Programme()
{
    return {
        { "Anna Berg - Erster Morgen", "Anna Berg", "Erster Morgen", "Anna Berg - Erster Morgen", "Frühe Stunden",
            431.7, 10.5 },
        { "Björk Ødegård - Über:Brücken", "Björk Ødegård", "Über:Brücken", "Björk Ødegård - Über-Brücken",
            "Nordlicht", 587.3, 9.6 },
        { "Carl Ray - Why? Because", "Carl Ray", "Why? Because", "Carl Ray - Why- Because", "Questions", 733.9, 10.2 },
        { "Dora Lind - It's A - Side", "Dora Lind", "It's A - Side", "Dora Lind - It's A - Side", "Singles", 911.3,
            9.8 },
        { "Emil Nord - Finale", "Emil Nord", "Finale", "Emil Nord - Finale", "Sommerträume", 1063.7, 12.5 },
    };
}

QList<Song> aacProgramme()
{
    return {
        { "Fiona Day - Morning Tide", "Fiona Day", "Morning Tide", "Fiona Day - Morning Tide", "Tides", 457.1, 8.4 },
        { "Gus Hill - Zweite Welle", "Gus Hill", "Zweite Welle", "Gus Hill - Zweite Welle", "Wellen", 659.9, 9.3 },
        { "Hana Ito - Last Light", "Hana Ito", "Last Light", "Hana Ito - Last Light", "Evenings", 881.7, 8 },
    };
}

QList<BroadcastSong> toBroadcast(const QList<Song> &songs)
{
    QList<BroadcastSong> out;
    for (const Song &s : songs)
        out.append({ s.title, s.toneHz, s.durationSec });
    return out;
}

QList<double> tonesOf(const QList<Song> &songs)
{
    QList<double> out;
    for (const Song &s : songs)
        out << s.toneHz;
    return out;
}

// The music store's search for album and cover, answering for the programme's songs only.
class StoreFixture {
public:
    explicit StoreFixture(const QList<Song> &songs)
    {
        QString error;
        if (const auto jpeg = renderCover(&error))
            m_cover = *jpeg;
        else
            ADD_FAILURE() << error.toStdString();
        m_server.route("/search", [this, songs](const FixtureServer::Request &request) {
            const QUrlQuery query(QString::fromUtf8(request.target.mid(request.target.indexOf('?') + 1)));
            const QString term = query.queryItemValue(QStringLiteral("term"), QUrl::FullyDecoded);
            QJsonArray results;
            for (const Song &s : songs) {
                if (term.contains(s.artist) && term.contains(s.name)) {
                    results.append(QJsonObject { { QStringLiteral("trackName"), s.name },
                        { QStringLiteral("artistName"), s.artist }, { QStringLiteral("collectionName"), s.album },
                        { QStringLiteral("artworkUrl100"), QString::fromUtf8(m_server.url("/art/100x100bb.jpg")) } });
                }
            }
            const QJsonObject body { { QStringLiteral("resultCount"), results.size() },
                { QStringLiteral("results"), results } };
            return FixtureServer::Script::response(200, "application/json", QJsonDocument(body).toJson());
        });
        m_server.route("/art/600x600bb.jpg", FixtureServer::Script::response(200, "image/jpeg", m_cover));
    }

    QString searchUrl() const { return QString::fromUtf8(m_server.url("/search")); }

private:
    static std::optional<QByteArray> renderCover(QString *error)
    {
        QProcess ffmpeg;
        ffmpeg.start(QStringLiteral("ffmpeg"),
            QStringLiteral("-hide_banner -loglevel error -f lavfi -i color=c=orange:s=64x64 -frames:v 1 -f mjpeg -")
                .split(u' '));
        if (!ffmpeg.waitForFinished(20000) || ffmpeg.exitCode() != 0) {
            *error = QStringLiteral("cannot render a cover: ") + QString::fromUtf8(ffmpeg.readAllStandardError());
            return std::nullopt;
        }
        return ffmpeg.readAllStandardOutput();
    }

    FixtureServer m_server;
    QByteArray m_cover;
};

// How one recorder is set up and when it stops.
struct Plan {
    QString label;
    bool lossless = false;
    qint64 leadInSec = 0;
    qint64 leadOutSec = 0;
    std::optional<QString> fullShow; // a whole show, with the standard engine settings
    double stopAtSec = 0; // source time
    bool padded() const { return leadInSec > 0 || leadOutSec > 0; }
};

// One orvida-cli record in a home of its own, so its settings, radio folder and library
// are its own.
class Recorder {
public:
    Recorder(Plan plan, const QString &storeUrl)
        : m_plan(std::move(plan))
    {
        const QString root = m_home.path();
        m_env.insert(QStringLiteral("HOME"), root);
        m_env.insert(QStringLiteral("XDG_CONFIG_HOME"), root + QStringLiteral("/config"));
        m_env.insert(QStringLiteral("XDG_DATA_HOME"), root + QStringLiteral("/data"));
        m_env.insert(QStringLiteral("XDG_CACHE_HOME"), root + QStringLiteral("/cache"));
        m_env.insert(QStringLiteral("ORVIDA_STORE_URL"), storeUrl);
        QDir(root).mkpath(QStringLiteral("Music"));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(m_env);
        m_process.setProcessEnvironment(env);
    }

    ~Recorder()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    const Plan &plan() const { return m_plan; }
    QString radioDir() const { return m_home.path() + QStringLiteral("/Music/Orvida/Radio"); }

    CliRun cli(const QStringList &args) const { return runCli(args, m_env); }

    [[nodiscard]] bool configure() const
    {
        if (m_plan.fullShow)
            return true;
        const CliRun run = cli(QStringLiteral("engine set --min-duration 0 --lossless %1 --lead-in %2 --lead-out %3")
                                   .arg(m_plan.lossless ? QStringLiteral("on") : QStringLiteral("off"))
                                   .arg(m_plan.leadInSec)
                                   .arg(m_plan.leadOutSec)
                                   .split(u' '));
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        return run.exitCode == 0;
    }

    // Starts recording so that it stops at the plan's source time.
    void start(const QString &url, double sourceNowSec)
    {
        QStringList args { QStringLiteral("record"), url, QStringLiteral("--name"), kStationName,
            QStringLiteral("--bitrate"), QStringLiteral("128"), QStringLiteral("--for"),
            QString::number(m_plan.stopAtSec - sourceNowSec, 'f', 2) };
        if (m_plan.fullShow)
            args << QStringLiteral("--full-show") << *m_plan.fullShow;
        m_process.start(QStringLiteral(ORVIDA_CLI_PATH), args);
    }

    // Plans the station's window through orvida-cli schedule add; the window is whole
    // seconds on the wall clock, written with its UTC offset.
    [[nodiscard]] bool schedule(const QString &url, const QDateTime &from, const QDateTime &to) const
    {
        QStringList args { QStringLiteral("schedule"), QStringLiteral("add"), url, QStringLiteral("--name"),
            kStationName, QStringLiteral("--start"), from.toOffsetFromUtc(from.offsetFromUtc()).toString(Qt::ISODate),
            QStringLiteral("--end"), to.toOffsetFromUtc(to.offsetFromUtc()).toString(Qt::ISODate) };
        if (m_plan.fullShow)
            args << QStringLiteral("--mode") << QStringLiteral("fullShow");
        const CliRun run = cli(args);
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        return run.exitCode == 0;
    }

    // The headless recorder, with a quick tick so a window starts within a fifth of a second.
    void startRun()
    {
        m_process.start(QStringLiteral(ORVIDA_CLI_PATH), { QStringLiteral("run"), QStringLiteral("--tick"), QStringLiteral("0.2") });
    }
    void terminate() { m_process.terminate(); }

    bool isDone() const { return m_process.state() == QProcess::NotRunning; }
    int exitCode() const { return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1; }

    // Collects the output once the process has ended.
    void finish()
    {
        m_out += m_process.readAllStandardOutput();
        m_err += m_process.readAllStandardError();
    }
    QByteArray errors() const { return m_err; }

    // The values of the event lines of one kind, in order.
    QStringList events(const QString &kind) const
    {
        QStringList values;
        for (const QString &line : QString::fromUtf8(m_out).split(QLatin1Char('\n'))) {
            if (line.startsWith(kind + QLatin1Char('\t')))
                values << line.mid(kind.size() + 1);
        }
        return values;
    }

    QJsonArray library() const
    {
        const CliRun run = cli({ QStringLiteral("library"), QStringLiteral("list"), QStringLiteral("--json") });
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        return QJsonDocument::fromJson(run.out).array();
    }

private:
    const Plan m_plan;
    QTemporaryDir m_home;
    QProcessEnvironment m_env;
    QProcess m_process;
    QByteArray m_out;
    QByteArray m_err;
};

// Where a recording's bytes sit in what the server sent; -1 unless exactly once.
qint64 placeInStream(const QByteArray &stream, const QByteArray &audio)
{
    const qsizetype at = stream.indexOf(audio);
    if (at < 0 || audio.isEmpty() || stream.indexOf(audio, at + 1) >= 0)
        return -1;
    return at;
}

struct Placed {
    int song = 0;
    qint64 offset = 0;
    qint64 length = 0;
};

// A byte-exact save keeps whole frames only: a file starts up to one frame after its cut
// and ends up to one frame before it (the pieces of the frame the cut fell in).
constexpr qint64 kFrameSlackBytes = 2048;

// How far `offset` lies from the nearest metadata boundary counted from `origin`.
qint64 offBoundary(qint64 offset, qint64 origin)
{
    const qint64 r = ((offset - origin) % kMetaint + kMetaint) % kMetaint;
    return std::min(r, kMetaint - r);
}

// Byte-exact files of consecutive songs, as they lie in the stream. Cuts fall on the
// metadata boundaries the titles came at, give or take the partial frames a save drops.
// Unpadded, each song starts where the previous one ended. Padded, a song's lead-out runs
// its seconds past the boundary (the boundaries are whole seconds apart), and the next
// song starts its lead-in to lead-in + 1 seconds before that boundary.
void checkCuts(const QList<Placed> &files, const Plan &mode)
{
    ASSERT_FALSE(files.isEmpty());
    const qint64 origin = files.first().offset; // the first title's boundary
    for (int i = 1; i < files.size(); ++i) {
        const Placed &prev = files[i - 1];
        const Placed &cur = files[i];
        SCOPED_TRACE(QStringLiteral("song #%1 to #%2").arg(prev.song).arg(cur.song).toStdString());
        const qint64 end = prev.offset + prev.length;
        if (!mode.padded()) {
            EXPECT_GE(cur.offset, end) << "overlap between consecutive songs";
            EXPECT_LE(cur.offset - end, kFrameSlackBytes) << "gap between consecutive songs";
            EXPECT_LE(offBoundary(cur.offset, origin), 2 * kFrameSlackBytes) << "cut off a metadata boundary";
            continue;
        }
        const qint64 cut = end - mode.leadOutSec * kBytesPerSec;
        EXPECT_LE(offBoundary(cut, origin), 2 * kFrameSlackBytes)
            << "the lead-out is not " << mode.leadOutSec << " s of bytes";
        EXPECT_GE(cur.offset, cut - (mode.leadInSec + 1) * kBytesPerSec - kFrameSlackBytes) << "lead-in too long";
        EXPECT_LE(cur.offset, cut - mode.leadInSec * kBytesPerSec + 2 * kFrameSlackBytes) << "lead-in too short";
    }
}

// How much of which song a recording of song `k` holds.
struct Heard {
    double headSec = 0; // the previous song, before this one's start
    double ownSec = 0; // from the first to the last window of this song's tone
    double tailSec = 0; // the next song, after this one's end
};

// Decodes a recording of song `k` and checks what it holds. `played` is the broadcast's
// log; `first` and `last` say whether the recorder joined during this song or was stopped
// in it (those files are partial by nature).
void checkSongAudio(const QString &path, int k, const QList<PlayedSong> &played, const QList<double> &tones,
    const Plan &plan, bool first, bool last, Heard *measured = nullptr)
{
    QString error;
    const auto pcm = AudioCheck::decode(path, &error);
    ASSERT_TRUE(pcm) << error.toStdString();
    const std::vector<int> labels = AudioCheck::toneLabels(*pcm, tones, kWindowSec);
    SCOPED_TRACE("heard: " + AudioCheck::describe(labels, kWindowSec).toStdString());

    const auto firstOwn = std::find(labels.begin(), labels.end(), k);
    ASSERT_NE(firstOwn, labels.end()) << "the song's own tone is missing";
    const auto lastOwn = std::find(labels.rbegin(), labels.rend(), k).base() - 1;
    EXPECT_TRUE(std::all_of(firstOwn, lastOwn, [k](int label) { return label == k; }))
        << "something else inside the song";
    Heard heard;
    heard.ownSec = double(lastOwn - firstOwn + 1) * kWindowSec;
    for (auto it = labels.begin(); it != firstOwn; ++it) {
        EXPECT_TRUE(*it == -1 || (k > 0 && *it == k - 1)) << "a song other than the previous one at the start";
        heard.headSec += *it >= 0 ? kWindowSec : 0;
    }
    for (auto it = lastOwn + 1; it != labels.end(); ++it) {
        EXPECT_TRUE(*it == -1 || *it == k + 1) << "a song other than the next one at the end";
        heard.tailSec += *it >= 0 ? kWindowSec : 0;
    }
    if (measured)
        *measured = heard;

    // How late icecast took each title: the cut lands 0 to one interval after that.
    const double songSec = played[k].endSec - played[k].startSec;
    const double lateSec = played[k].titleSetSec - played[k].startSec;
    const double nextLateSec = k + 1 < played.size() ? played[k + 1].titleSetSec - played[k + 1].startSec : 0;
    const double cutSpreadSec = kMetaintSec + kEdgeSec;

    if (!plan.padded()) {
        EXPECT_LE(heard.headSec, kEdgeSec);
        EXPECT_LE(heard.tailSec, nextLateSec + cutSpreadSec);
        if (!first && !last) {
            EXPECT_GE(heard.ownSec, songSec - lateSec - cutSpreadSec);
            EXPECT_LE(heard.ownSec, songSec - lateSec + kEdgeSec);
        }
        return;
    }
    // Padded: the lead-in starts the song early (not the first one: it has no past),
    // the lead-out ends it late, and so the whole song is there.
    const double leadInSec = double(plan.leadInSec);
    const double leadOutSec = double(plan.leadOutSec);
    if (first) {
        EXPECT_LE(heard.headSec, kEdgeSec);
    } else {
        EXPECT_GE(heard.headSec, leadInSec - lateSec - cutSpreadSec);
        EXPECT_LE(heard.headSec, leadInSec + 1 - lateSec + kEdgeSec);
    }
    EXPECT_LE(heard.tailSec, leadOutSec + nextLateSec + cutSpreadSec);
    if (!last) {
        EXPECT_GE(heard.tailSec, leadOutSec + nextLateSec - kEdgeSec);
    }
    if (!first && !last) {
        EXPECT_NEAR(heard.ownSec, songSec, kEdgeSec);
    }
}

// The library entry of a saved file, or an empty object.
QJsonObject entryFor(const QJsonArray &library, const QString &path)
{
    for (const QJsonValue &v : library) {
        if (v.toObject().value(QLatin1String("filePath")).toString() == path)
            return v.toObject();
    }
    return {};
}

// Everything about one split recording of songs 0 to `lastSaved`, while titles up to
// `lastTitled` arrived: its events, files, tags, library entries and audio, and for
// byte-exact saves where each file lies in the stream.
void checkSplitRecording(Recorder &recorder, const QList<Song> &songs, const QList<PlayedSong> &played, int lastTitled,
    int lastSaved, const QString &streamExt, const QByteArray &stream)
{
    const Plan &plan = recorder.plan();
    SCOPED_TRACE(plan.label.toStdString());
    EXPECT_EQ(recorder.exitCode(), 0) << recorder.errors().toStdString();

    QStringList titles;
    for (int k = 0; k <= lastTitled; ++k)
        titles << songs[k].title;
    EXPECT_EQ(recorder.events(QStringLiteral("title")), titles);
    const QStringList saved = recorder.events(QStringLiteral("saved"));
    EXPECT_EQ(saved.size(), lastSaved + 1) << saved.join(QLatin1Char('\n')).toStdString();

    const QString ext = plan.lossless ? streamExt : QStringLiteral("mp3");
    const QJsonArray library = recorder.library();
    EXPECT_EQ(library.size(), lastSaved + 1);
    QList<Placed> placed;
    for (int k = 0; k <= lastSaved; ++k) {
        const Song &song = songs[k];
        SCOPED_TRACE(song.title.toStdString());
        const QString path = recorder.radioDir() + QLatin1Char('/') + song.fileName + QLatin1Char('.') + ext;
        EXPECT_TRUE(saved.contains(path)) << "not reported as saved: " << path.toStdString();
        ASSERT_TRUE(QFileInfo::exists(path));

        QString error;
        const auto info = AudioCheck::probe(path, &error);
        ASSERT_TRUE(info) << error.toStdString();
        const QByteArray bytes = readFile(path);
        if (ext == QLatin1String("mp3")) {
            EXPECT_EQ(info->audioCodec, "mp3");
            EXPECT_EQ(info->tags.value(QStringLiteral("title")), song.name);
            EXPECT_EQ(info->tags.value(QStringLiteral("artist")), song.artist);
            EXPECT_EQ(info->tags.value(QStringLiteral("album")), song.album);
            EXPECT_TRUE(info->hasCover);
        } else {
            // The stream's own bytes from the first on: no tag in front of an AAC stream.
            EXPECT_EQ(info->audioCodec, "aac");
            EXPECT_FALSE(bytes.startsWith("ID3"));
        }
        if (plan.lossless) {
            const bool tagged = ext == QLatin1String("mp3");
            if (tagged) {
                EXPECT_TRUE(bytes.startsWith(QByteArray("ID3\x03\x00\x00", 6)));
            }
            const QByteArray audio = tagged ? withoutId3v2Tag(bytes) : bytes;
            const qint64 offset = placeInStream(stream, audio);
            EXPECT_GE(offset, 0) << "not a piece of what the server sent";
            if (offset >= 0)
                placed.append({ k, offset, audio.size() });
        }

        const QJsonObject entry = entryFor(library, path);
        EXPECT_EQ(entry.value(QLatin1String("title")).toString(), song.name);
        EXPECT_EQ(entry.value(QLatin1String("artist")).toString(), song.artist);
        EXPECT_EQ(entry.value(QLatin1String("album")).toString(), song.album);
        EXPECT_EQ(entry.value(QLatin1String("source")).toString(), "radio");
        EXPECT_EQ(entry.value(QLatin1String("station")).toString(), kStationName);
        EXPECT_NEAR(entry.value(QLatin1String("duration")).toDouble(), info->durationSec, 0.5);

        checkSongAudio(path, k, played, tonesOf(songs), plan, k == 0, k == lastSaved);
    }
    if (plan.lossless && placed.size() == lastSaved + 1)
        checkCuts(placed, plan);
    // Segments and work files are gone once the recorder has exited.
    EXPECT_EQ(QDir(recorder.radioDir() + QStringLiteral("/tmp")).entryList(QDir::Files | QDir::Hidden), QStringList());
}

// The song playing at a source time.
int songAt(const QList<PlayedSong> &played, double sec)
{
    for (const PlayedSong &p : played) {
        if (sec < p.endSec)
            return p.index;
    }
    return int(played.size()) - 1;
}

class RecordingE2eTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (!IcecastFixture::missingTools().isEmpty())
            return;
        s_icecast = new IcecastFixture;
        if (!s_icecast->start(&s_startError)) {
            delete s_icecast;
            s_icecast = nullptr;
        }
    }

    static void TearDownTestSuite()
    {
        delete s_icecast;
        s_icecast = nullptr;
    }

    void SetUp() override
    {
        const QString missing = IcecastFixture::missingTools();
        if (!missing.isEmpty())
            GTEST_SKIP() << missing.toStdString();
        ASSERT_TRUE(s_icecast) << "icecast2 did not start: " << s_startError.toStdString();
    }

    // One recorder per plan, each configured through orvida-cli engine set.
    void prepare(const QList<Plan> &plans, const QString &storeUrl)
    {
        for (const Plan &plan : plans) {
            recorders.push_back(std::make_unique<Recorder>(plan, storeUrl));
            ASSERT_TRUE(recorders.back()->configure());
        }
    }

    // Starts the broadcast and a capture of it, runs every recorder until its stop time
    // and ends the broadcast.
    void broadcastAndRecord(const QList<Song> &songs, const Broadcast::Options &options)
    {
        ASSERT_NO_FATAL_FAILURE(startBroadcast(songs, options));
        const double startSec = broadcast->sourceTimeSec();
        double lastStopSec = 0;
        for (const auto &recorder : recorders) {
            recorder->start(s_icecast->streamUrl(options.mount), broadcast->sourceTimeSec());
            lastStopSec = std::max(lastStopSec, recorder->plan().stopAtSec);
        }
        endBroadcast(int((lastStopSec - startSec) * 1000) + 30000, "a recorder did not stop");
        for (const PlayedSong &p : std::as_const(played))
            EXPECT_GE(p.titleSetSec, p.startSec) << "title of #" << p.index << " never set";
        // The recorders join during the first song; the programmes leave room for that.
        ASSERT_EQ(songAt(played, startSec), 0) << "started late, at " << startSec << " s";
    }

    // Starts the broadcast and a capture of it.
    void startBroadcast(const QList<Song> &songs, const Broadcast::Options &options)
    {
        broadcast = std::make_unique<Broadcast>(*s_icecast, toBroadcast(songs), options);
        QString error;
        ASSERT_TRUE(broadcast->start(&error)) << error.toStdString();
        capture = std::make_unique<StreamCapture>(s_icecast->port(), options.mount);
        ASSERT_TRUE(capture->start(&error)) << error.toStdString();
    }

    // Waits for every recorder to end, collects their output and ends the broadcast.
    void endBroadcast(int timeoutMs, const char *whenLate)
    {
        EXPECT_TRUE(waitUntil(
            [&] { return std::all_of(recorders.begin(), recorders.end(), [](const auto &r) { return r->isDone(); }); },
            timeoutMs))
            << whenLate;
        for (const auto &recorder : recorders)
            recorder->finish();
        capture->stop();
        broadcast->stop();
        played = broadcast->log();
    }

    static IcecastFixture *s_icecast;
    static QString s_startError;
    std::vector<std::unique_ptr<Recorder>> recorders;
    std::unique_ptr<Broadcast> broadcast;
    std::unique_ptr<StreamCapture> capture;
    QList<PlayedSong> played;
};

IcecastFixture *RecordingE2eTest::s_icecast = nullptr;
QString RecordingE2eTest::s_startError;

TEST_F(RecordingE2eTest, Mp3StreamBecomesOneTaggedFilePerSongInEverySaveMode)
{
    // Songs at 0, 10.5, 20.1, 30.3 and 40.1 s; the programme ends at 52.6 s. Most recorders
    // stop at 50.5 s, in the last song and past any lead-out of its title change.
    const QList<Song> songs = mp3Programme();
    const QString show = QStringLiteral("Frühsendung");
    StoreFixture store(songs);
    prepare({ { QStringLiteral("byte-exact, unpadded"), true, 0, 0, std::nullopt, 50.5 },
                { QStringLiteral("re-encoded, unpadded"), false, 0, 0, std::nullopt, 50.5 },
                { QStringLiteral("byte-exact, lead-in 2 s, lead-out 3 s"), true, 2, 3, std::nullopt, 50.5 },
                { QStringLiteral("re-encoded, lead-in 2 s, lead-out 3 s"), false, 2, 3, std::nullopt, 50.5 },
                // Stopped 2 s after the last song began: its title has arrived (at most 1.1 s
                // in) and the previous song's 3 s lead-out is still running.
                { QStringLiteral("stopped during a lead-out"), true, 2, 3, std::nullopt, 42.1 },
                // A whole show is one file under the show's name, however short: the
                // standard minimum of 45 s must not apply to it.
                { QStringLiteral("full show"), false, 0, 0, show, 50.5 } },
        store.searchUrl());
    broadcastAndRecord(songs, {});
    ASSERT_EQ(songs.size(), 5);
    const QByteArray stream = capture->audio();

    for (int i = 0; i < 4; ++i)
        checkSplitRecording(*recorders[size_t(i)], songs, played, 4, 4, QStringLiteral("mp3"), stream);

    {
        // The pending cut is saved under the previous title, lead-out cut short at the
        // stop; the last song, only just begun, is not saved.
        Recorder &recorder = *recorders[4];
        checkSplitRecording(recorder, songs, played, 4, 3, QStringLiteral("mp3"), stream);
        Heard heard;
        checkSongAudio(recorder.radioDir() + QStringLiteral("/Dora Lind - It's A - Side.mp3"), 3, played,
            tonesOf(songs), recorder.plan(), false, true, &heard);
        EXPECT_GE(heard.tailSec, 0.5) << "the lead-out recorded up to the stop is missing";
    }

    // The whole show: every song in order, none cut short inside the show.
    Recorder &showRecorder = *recorders[5];
    SCOPED_TRACE("full show");
    EXPECT_EQ(showRecorder.exitCode(), 0) << showRecorder.errors().toStdString();
    const QString path = showRecorder.radioDir() + QStringLiteral("/Frühsendung.mp3");
    EXPECT_EQ(showRecorder.events(QStringLiteral("saved")), QStringList { path });
    QString error;
    const auto info = AudioCheck::probe(path, &error);
    ASSERT_TRUE(info) << error.toStdString();
    EXPECT_EQ(info->tags.value(QStringLiteral("title")), show);
    EXPECT_EQ(info->tags.value(QStringLiteral("album")), QString()) << "a show is not looked up in the store";
    const QJsonObject entry = entryFor(showRecorder.library(), path);
    EXPECT_EQ(entry.value(QLatin1String("title")).toString(), show);
    EXPECT_EQ(entry.value(QLatin1String("artist")).toString(), QString());

    const auto pcm = AudioCheck::decode(path, &error);
    ASSERT_TRUE(pcm) << error.toStdString();
    const std::vector<int> labels = AudioCheck::toneLabels(*pcm, tonesOf(songs), kWindowSec);
    SCOPED_TRACE("heard: " + AudioCheck::describe(labels, kWindowSec).toStdString());
    QList<AudioCheck::Run> heard = AudioCheck::runs(labels);
    // Only the songs' own stretches; a song change may leave a window of neither.
    for (const AudioCheck::Run &run : std::as_const(heard))
        EXPECT_TRUE(run.label >= 0 || run.windows * kWindowSec <= kEdgeSec) << "a gap inside the show";
    heard.removeIf([](const AudioCheck::Run &run) { return run.label < 0; });
    ASSERT_EQ(heard.size(), 5);
    for (int k = 0; k < 5; ++k) {
        EXPECT_EQ(heard[k].label, k);
        if (k > 0 && k < 4) {
            EXPECT_NEAR(heard[k].windows * kWindowSec, played[k].endSec - played[k].startSec, kEdgeSec) << k;
        }
    }
}

TEST_F(RecordingE2eTest, AacStreamIsKeptAsItsOwnBytesOrReencodedToMp3)
{
    // Songs at 0, 8.4 and 17.7 s; the programme ends at 25.7 s.
    const QList<Song> songs = aacProgramme();
    StoreFixture store(songs);
    prepare({ { QStringLiteral("byte-exact AAC"), true, 0, 0, std::nullopt, 22 },
                { QStringLiteral("AAC re-encoded"), false, 0, 0, std::nullopt, 22 } },
        store.searchUrl());
    Broadcast::Options options;
    options.mount = QStringLiteral("/radio.aac");
    options.codec = BroadcastCodec::Aac;
    broadcastAndRecord(songs, options);
    ASSERT_TRUE(capture->responseHead().contains("Content-Type: audio/aac")) << capture->responseHead().toStdString();
    const QByteArray stream = capture->audio();
    for (const auto &recorder : recorders)
        checkSplitRecording(*recorder, songs, played, 2, 2, QStringLiteral("aac"), stream);
}

TEST_F(RecordingE2eTest, ScheduledWindowIsRecordedByTheHeadlessRecorder)
{
    // The window opens during the first song and closes during the last; one home plans it
    // split into songs, another as a whole show. Each runs orvida-cli run until SIGTERM.
    const QList<Song> songs = mp3Programme();
    StoreFixture store(songs);
    prepare({ { QStringLiteral("scheduled, split"), false, 0, 0, std::nullopt, 0 },
                { QStringLiteral("scheduled, full show"), false, 0, 0, QStringLiteral("(show title)"), 0 } },
        store.searchUrl());
    const QString url = s_icecast->streamUrl(QStringLiteral("/radio.mp3"));
    for (const auto &recorder : recorders)
        recorder->startRun();

    ASSERT_NO_FATAL_FAILURE(startBroadcast(songs, {}));
    // Songs at 0, 10.5, 20.1, 30.3 and 40.1 s: open the window about 3 s in and keep it 43 s.
    const QDateTime now = QDateTime::currentDateTime();
    const QDateTime soon = now.addSecs(3);
    const QDateTime windowStart = soon.addMSecs(-soon.time().msec()); // whole seconds
    const QDateTime windowEnd = windowStart.addSecs(43);
    for (const auto &recorder : recorders)
        ASSERT_TRUE(recorder->schedule(url, windowStart, windowEnd));
    const double openSec = broadcast->sourceTimeSec() + double(QDateTime::currentDateTime().msecsTo(windowStart)) / 1000;

    // The scheduler ends the sessions at the window's end; SIGTERM then ends the process.
    ASSERT_TRUE(waitUntil([&] { return QDateTime::currentDateTime() > windowEnd.addSecs(2); }, 60000));
    for (const auto &recorder : recorders)
        recorder->terminate();
    endBroadcast(60000, "orvida-cli run did not end on SIGTERM");
    ASSERT_EQ(played.size(), songs.size()) << "the broadcast ended early";
    ASSERT_EQ(songAt(played, openSec), 0) << "the window opened late, at " << openSec << " s";
    ASSERT_EQ(songAt(played, openSec + 43), 4) << "the window closed at " << openSec + 43 << " s";

    Recorder &split = *recorders[0];
    EXPECT_EQ(split.events(QStringLiteral("started")).size(), 1);
    EXPECT_EQ(split.events(QStringLiteral("stopped")).size(), 1) << "the window's end did not stop the session";
    checkSplitRecording(split, songs, played, 4, 4, QStringLiteral("mp3"), capture->audio());

    // The whole show carries the plan's title: station, date, and the window's times
    // joined by an en dash; the file is named after it.
    Recorder &show = *recorders[1];
    EXPECT_EQ(show.exitCode(), 0) << show.errors().toStdString();
    const QStringList saved = show.events(QStringLiteral("saved"));
    ASSERT_EQ(saved.size(), 1) << saved.join(QLatin1Char('\n')).toStdString();
    const QString hours = windowStart.toString(QStringLiteral("HH:mm")) + QChar(0x2013) + windowEnd.toString(QStringLiteral("HH:mm"));
    const QFileInfo file(saved[0]);
    EXPECT_EQ(file.absolutePath(), show.radioDir());
    EXPECT_TRUE(file.fileName().startsWith(kStationName + QLatin1Char(' '))) << saved[0].toStdString();
    EXPECT_TRUE(file.fileName().endsWith(QString(hours).replace(QLatin1Char(':'), QLatin1Char('-')) + QStringLiteral(".mp3")))
        << saved[0].toStdString();
    QString error;
    const auto info = AudioCheck::probe(saved[0], &error);
    ASSERT_TRUE(info) << error.toStdString();
    const QString title = info->tags.value(QStringLiteral("title"));
    EXPECT_TRUE(title.startsWith(kStationName + QLatin1Char(' ')) && title.endsWith(hours)) << title.toStdString();
    // The window's 43 s, plus what icecast hands a new listener from the past at once (its
    // 64 KiB burst, 4.1 s at 128 kbit/s) and a tick or two of lateness at either end.
    EXPECT_GE(info->durationSec, 43 - 0.5);
    EXPECT_LE(info->durationSec, 43 + 65535.0 / kBytesPerSec + 1);
    const QJsonArray library = show.library();
    ASSERT_EQ(library.size(), 1);
    EXPECT_EQ(entryFor(library, saved[0]).value(QLatin1String("title")).toString(), title);

    // Every song of the window in order, the first and last in part.
    const auto pcm = AudioCheck::decode(saved[0], &error);
    ASSERT_TRUE(pcm) << error.toStdString();
    const std::vector<int> labels = AudioCheck::toneLabels(*pcm, tonesOf(songs), kWindowSec);
    QList<AudioCheck::Run> heard = AudioCheck::runs(labels);
    heard.removeIf([](const AudioCheck::Run &run) { return run.label < 0; });
    QList<int> order;
    for (const AudioCheck::Run &run : std::as_const(heard))
        order << run.label;
    EXPECT_EQ(order, QList<int>({ 0, 1, 2, 3, 4 })) << AudioCheck::describe(labels, kWindowSec).toStdString();
    // Nothing recorded is left behind, and the plan, a one-off, has been used up.
    EXPECT_EQ(QDir(show.radioDir() + QStringLiteral("/tmp")).entryList(QDir::Files | QDir::Hidden), QStringList());
    const CliRun plans = show.cli({ QStringLiteral("schedule"), QStringLiteral("list"), QStringLiteral("--json") });
    EXPECT_EQ(QJsonDocument::fromJson(plans.out).array().size(), 0) << plans.out.toStdString();
}

} // namespace
