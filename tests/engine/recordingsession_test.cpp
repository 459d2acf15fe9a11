#include "engine/apppaths.h"
#include "engine/enginesettingsstore.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "platform/httpclient.h"

#include "fixtureserver.h"
#include "icecastfixture.h"
#include "icystream.h"
#include "bytesettings.h"
#include "testenv.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

using IcyStream::audioBlock;
using IcyStream::metaBlock;

QByteArray icyTitle(const QByteArray &title)
{
    return metaBlock("StreamTitle='" + title + "';");
}

class RecordingSessionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        useByteExactSaves(); // what the server sent is what we compare
        context.timings.reconnectDelaySec = [](qint64) { return 0.05; };
        context.timings.statusPolling = false;
        context.timings.idleTimeoutSec = 2;
    }

    void setPadding(qint64 leadIn, qint64 leadOut)
    {
        RadioEngineSettings settings = RadioEngineSettings::loadGlobal();
        settings.leadInSec = leadIn;
        settings.leadOutSec = leadOut;
        EXPECT_TRUE(EngineSettingsStore().setGlobal(settings).ok);
    }

    // Starts a session, waits for `done`, stops it and waits until every save is back.
    std::unique_ptr<RecordingSession> record(const Station &station, const std::function<bool()> &done,
                                             int timeoutMs = 10000)
    {
        auto session = std::make_unique<RecordingSession>(station, std::nullopt, context);
        session->onTrackSaved = [this](const Track &t) { saved.push_back(t); };
        session->onStopped = [this](SessionOutcome outcome) { outcomes.push_back(outcome); };
        EXPECT_TRUE(waitUntil(done, timeoutMs));
        session->stop();
        EXPECT_TRUE(waitUntil([&] { return session->isIdle(); }, 10000));
        return session;
    }

    const Track *savedTitled(const QString &title) const
    {
        for (const Track &t : saved) {
            if (t.artist + " - " + t.title == title)
                return &t;
        }
        return nullptr;
    }

    QStringList leftoversInTmp() const
    {
        return QDir(AppPaths::tmpDir()).entryList(QDir::Files | QDir::Hidden);
    }

    TestHome home;
    FixtureServer server;
    HttpClient http;
    RecordingContext context{http, nullptr};
    std::vector<Track> saved;
    std::vector<SessionOutcome> outcomes;
};

TEST_F(RecordingSessionTest, UnpaddedSongsAreByteExactBetweenTitleChanges)
{
    QByteArray body = audioBlock(0) + icyTitle("Artist - One");
    QByteArray one, two;
    for (int n = 1; n <= 3; ++n) {
        body += audioBlock(n) + metaBlock({});
        one += audioBlock(n);
    }
    body += audioBlock(4) + icyTitle("Artist - Two");
    one += audioBlock(4);
    for (int n = 5; n <= 6; ++n) {
        body += audioBlock(n) + metaBlock({});
        two += audioBlock(n);
    }
    server.route("/live", FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}, {"Content-Type", "audio/mpeg"}})
                              .send(body.left(2500))
                              .pause(20)
                              .send(body.mid(2500))
                              .hang());
    Station station = Station::custom(QString::fromLatin1(server.url("/live")), "Fixture FM");
    const auto session = record(station, [&] { return saved.size() == 1; });

    ASSERT_EQ(saved.size(), 2u);
    const Track *first = savedTitled("Artist - One");
    const Track *second = savedTitled("Artist - Two");
    ASSERT_TRUE(first && second);
    EXPECT_EQ(withoutId3v2Tag(readFile(*first->filePath)), one);
    EXPECT_EQ(withoutId3v2Tag(readFile(*second->filePath)), two); // cut short by the stop, saved all the same
    EXPECT_EQ(first->source, "radio");
    EXPECT_EQ(first->station, "Fixture FM");
    EXPECT_EQ(session->recordedCount(), 2);
    EXPECT_EQ(session->currentStreamTitle(), "Artist - Two");
    EXPECT_EQ(outcomes, std::vector{SessionOutcome::Stopped});
    EXPECT_TRUE(leftoversInTmp().isEmpty()) << leftoversInTmp().join(", ").toStdString();

    const auto requests = server.requests();
    ASSERT_FALSE(requests.isEmpty());
    EXPECT_EQ(requests[0].header("Icy-MetaData"), "1");
    EXPECT_EQ(requests[0].header("User-Agent"), "Mozilla/5.0 Orvida/1.0");
    EXPECT_EQ(requests[0].header("Accept-Encoding"), "identity");
}

TEST_F(RecordingSessionTest, PaddingAddsLeadOutBytesAndStartsTheNextSongWithTheLeadIn)
{
    // 16 kB/s (listed 128 kbit/s): 1 s of lead-out is 16000 bytes, 1 s lead-in keeps
    // 16000 to 32000 bytes before the change.
    setPadding(1, 1);
    QByteArray beforeChange, afterChange;
    for (int n = 1; n <= 40; ++n)
        beforeChange += audioBlock(n);
    for (int n = 41; n <= 80; ++n)
        afterChange += audioBlock(n);
    // The title block after run 40 announces the change.
    QByteArray body = audioBlock(0) + icyTitle("A - One");
    for (int n = 1; n <= 40; ++n)
        body += audioBlock(n) + (n == 40 ? icyTitle("B - Two") : metaBlock({}));
    for (int n = 41; n <= 80; ++n)
        body += audioBlock(n) + metaBlock({});

    server.route("/pad", FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}}).send(body).hang());
    Station station = Station::custom(QString::fromLatin1(server.url("/pad")), "Pad FM");
    station.bitrate = 128;
    record(station, [&] { return saved.size() == 1; });

    ASSERT_EQ(saved.size(), 2u);
    const QByteArray one = withoutId3v2Tag(readFile(*savedTitled("A - One")->filePath));
    const QByteArray two = withoutId3v2Tag(readFile(*savedTitled("B - Two")->filePath));
    EXPECT_EQ(one, beforeChange + afterChange.left(16000));
    // The new song: the lead-in snapshot (the last 16000..32000 bytes before the change),
    // then everything after it.
    ASSERT_TRUE(two.endsWith(afterChange));
    const QByteArray leadIn = two.left(two.size() - afterChange.size());
    EXPECT_GE(leadIn.size(), 16000);
    EXPECT_LE(leadIn.size(), 32000);
    EXPECT_TRUE(beforeChange.endsWith(leadIn));
}

// A station that never gives a usable answer: every attempt fails, none resets the
// count, nothing is written, and the ninth failure in a row ends the session.
struct DeadAnswer {
    const char *name;
    std::function<FixtureServer::Script(const FixtureServer &server)> script;
    const char *reason; // part of the status's reason
};

void PrintTo(const DeadAnswer &answer, std::ostream *os)
{
    *os << answer.name;
}

class DeadStation : public RecordingSessionTest, public ::testing::WithParamInterface<DeadAnswer> {};

TEST_P(DeadStation, GivesUpAfterEightAttemptsWithoutWritingTheBody)
{
    const DeadAnswer &answer = GetParam();
    server.route("/dead", [&](const FixtureServer::Request &) { return answer.script(server); });
    RecordingSession session(Station::custom(QString::fromLatin1(server.url("/dead")), "Dead FM"), std::nullopt,
                             context);
    session.onStopped = [&](SessionOutcome outcome) { outcomes.push_back(outcome); };
    QString error;
    QStringList reasons;
    qint64 lastAttempt = 0;
    QObject::connect(&session, &RecordingSession::errorMessageChanged, [&](const QString &e) { error = e; });
    QObject::connect(&session, &RecordingSession::statusChanged, [&](const SessionStatus &status) {
        EXPECT_NE(status.state, SessionStatus::State::Recording);
        if (status.state == SessionStatus::State::Reconnecting && status.attempt != lastAttempt) {
            EXPECT_EQ(status.attempt, lastAttempt + 1) << "a failed answer must not reset the count";
            lastAttempt = status.attempt;
            reasons << status.reason;
        }
    });
    ASSERT_TRUE(waitUntil([&] { return !outcomes.empty(); }, 8000));
    EXPECT_EQ(outcomes, std::vector{SessionOutcome::GaveUp});
    EXPECT_EQ(error, "Stream unterbrochen");
    EXPECT_EQ(lastAttempt, 8);
    ASSERT_FALSE(reasons.isEmpty());
    EXPECT_TRUE(reasons.last().contains(QLatin1String(answer.reason))) << reasons.last().toStdString();
    EXPECT_EQ(session.status().state, SessionStatus::State::GaveUp);
    EXPECT_FALSE(session.isStopped()); // the owner decides; the session only reports
    session.stop();
    ASSERT_TRUE(waitUntil([&] { return session.isIdle(); }));
    EXPECT_TRUE(saved.empty());
    EXPECT_EQ(session.outcome(), SessionOutcome::GaveUp); // the later stop does not rewrite it
    EXPECT_TRUE(leftoversInTmp().isEmpty()) << leftoversInTmp().join(", ").toStdString();
}

const QByteArray kErrorPage(13000, 'e');

INSTANTIATE_TEST_SUITE_P(
    Answers, DeadStation,
    ::testing::Values(
        DeadAnswer{"NotFound", [](const FixtureServer &) { return FixtureServer::Script::response(404, "text/html", kErrorPage); },
                   "HTTP 404"},
        DeadAnswer{"ServerError",
                   [](const FixtureServer &) {
                       return FixtureServer::Script::head("HTTP/1.0 500 Internal Server Error", {{"Content-Type", "audio/mpeg"}})
                           .send(kErrorPage);
                   },
                   "HTTP 500"},
        DeadAnswer{"WebPageForEveryAgent",
                   [](const FixtureServer &) { return FixtureServer::Script::response(200, "text/html", kErrorPage); },
                   "web page"},
        DeadAnswer{"Gzip",
                   [](const FixtureServer &) {
                       return FixtureServer::Script::head("HTTP/1.0 200 OK",
                                                          {{"Content-Type", "audio/mpeg"}, {"Content-Encoding", "gzip"}})
                           .send(kErrorPage)
                           .hang();
                   },
                   "gzip"},
        DeadAnswer{"RedirectLoop",
                   [](const FixtureServer &server) {
                       return FixtureServer::Script::head("HTTP/1.0 302 Found", {{"Location", server.url("/dead")}});
                   },
                   "HTTP 302"},
        DeadAnswer{"RedirectToFile",
                   [](const FixtureServer &) {
                       return FixtureServer::Script::head("HTTP/1.0 301 Moved", {{"Location", "file:///etc/passwd"}});
                   },
                   "HTTP 301"},
        DeadAnswer{"RedirectToFtp",
                   [](const FixtureServer &) {
                       return FixtureServer::Script::head("HTTP/1.0 307 Moved", {{"Location", "ftp://127.0.0.1/x.mp3"}});
                   },
                   "HTTP 307"},
        DeadAnswer{"Unreachable",
                   [](const FixtureServer &) { return FixtureServer::Script().close(); },
                   ""}),
    [](const ::testing::TestParamInfo<DeadAnswer> &p) { return std::string(p.param.name); });

TEST_F(RecordingSessionTest, StatusFollowsConnectingRecordingAndReconnecting)
{
    int connection = 0;
    server.route("/flaky", [&](const FixtureServer::Request &) {
        ++connection;
        if (connection == 1) // connected, then a stall past the idle time-out
            return FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}}).send(audioBlock(0) + metaBlock({})).hang();
        if (connection == 2)
            return FixtureServer::Script::response(503, "text/plain", "busy");
        return FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}}).produce(100, [] {
            return audioBlock(1) + metaBlock({});
        });
    });
    context.timings.reconnectDelaySec = [](qint64) { return 0.3; };
    context.timings.idleTimeoutSec = 1.0;
    RecordingSession session(Station::custom(QString::fromLatin1(server.url("/flaky")), "Flaky FM"), std::nullopt,
                             context);
    using State = SessionStatus::State;
    QList<std::pair<State, qint64>> steps; // state changes with their attempt number
    QString busyReason;
    QObject::connect(&session, &RecordingSession::statusChanged, [&](const SessionStatus &s) {
        if (steps.isEmpty() || steps.last() != std::pair{s.state, s.attempt})
            steps.append({s.state, s.attempt});
        if (s.attempt == 2 && s.state == State::Reconnecting) {
            busyReason = s.reason;
            EXPECT_GT(s.reconnectInSec(), 0);
            EXPECT_EQ(s.maxAttempts, 8);
        }
    });
    EXPECT_EQ(session.status().state, State::Connecting);
    ASSERT_TRUE(waitUntil([&] { return connection == 3 && session.status().state == State::Recording; }));
    // Bytes are counted across connections and reported while recording goes on.
    ASSERT_TRUE(waitUntil([&] { return session.status().bytesReceived > 1001 + 3 * 1001; }, 4000));
    const QList<std::pair<State, qint64>> expected{{State::Recording, 0},  {State::Reconnecting, 1},
                                                   {State::Connecting, 1}, {State::Reconnecting, 2},
                                                   {State::Connecting, 2}, {State::Recording, 0}};
    EXPECT_EQ(steps, expected);
    EXPECT_EQ(busyReason, "HTTP 503");
    session.stop();
    EXPECT_EQ(session.status().state, State::Stopped);
    EXPECT_EQ(session.outcome(), SessionOutcome::Stopped);
    ASSERT_TRUE(waitUntil([&] { return session.isIdle(); }));
}

TEST_F(RecordingSessionTest, RejectsAddressesThatAreNotStreamUrls)
{
    for (const QString &bad : {QStringLiteral("not a url"), QStringLiteral("ftp://host/x"), QStringLiteral("http://")}) {
        RecordingSession session(Station::custom(bad, "Bad"), std::nullopt, context);
        std::optional<SessionOutcome> ended;
        QObject::connect(&session, &RecordingSession::ended, [&](SessionOutcome o) { ended = o; });
        ASSERT_TRUE(waitUntil([&] { return ended.has_value(); }, 3000)) << bad.toStdString();
        EXPECT_EQ(*ended, SessionOutcome::InvalidAddress);
        EXPECT_EQ(*session.errorMessage(), "Ungültige Stream-URL");
    }
}

TEST_F(RecordingSessionTest, AnHtmlAnswerIsRetriedOnceWithThePlayerAgent)
{
    QByteArray body = audioBlock(0) + icyTitle("A - Song") + audioBlock(1) + icyTitle("B - Next") + audioBlock(2) + metaBlock({});
    server.route("/web", [&](const FixtureServer::Request &r) {
        if (r.header("User-Agent") != "WinampMPEG/5.0")
            return FixtureServer::Script::response(200, "text/html; charset=utf-8", "<html>player page</html>");
        return FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}}).send(body).hang();
    });
    record(Station::custom(QString::fromLatin1(server.url("/web")), "Web FM"), [&] { return saved.size() == 1; });
    ASSERT_TRUE(savedTitled("A - Song"));
    EXPECT_EQ(withoutId3v2Tag(readFile(*savedTitled("A - Song")->filePath)), audioBlock(1));
    EXPECT_EQ(server.requestCount("/web"), 2);
}

// The server drops inside a metadata block; the next connection (to the address the
// playlist gave, resolved once) goes on with the same song, nothing of the cut block in it.
// (A stall that reconnects is the status test's case.)
TEST_F(RecordingSessionTest, PlaylistsAreResolvedOnceAndADropoutKeepsBothPiecesOfTheSongTogether)
{
    server.route("/listen.pls", FixtureServer::Script::response(200, "audio/x-scpls",
                                                                "[playlist]\nFile1=" + server.url("/real") + "\n"));
    int connection = 0;
    server.route("/real", [&](const FixtureServer::Request &) {
        auto script = FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}});
        if (++connection == 1) {
            const QByteArray cut = icyTitle("ignored - cut").left(5);
            return script.send(audioBlock(0) + icyTitle("A - Whole") + audioBlock(1) + metaBlock({}) + audioBlock(2) + cut)
                .close();
        }
        return script.send(audioBlock(3) + metaBlock({}) + audioBlock(4) + icyTitle("B - Next") + audioBlock(5)).hang();
    });
    record(Station::custom(QString::fromLatin1(server.url("/listen.pls")), "PLS FM"), [&] { return saved.size() == 1; });
    ASSERT_TRUE(savedTitled("A - Whole"));
    EXPECT_EQ(withoutId3v2Tag(readFile(*savedTitled("A - Whole")->filePath)), audioBlock(1) + audioBlock(2) + audioBlock(3) + audioBlock(4));
    EXPECT_EQ(server.requestCount("/listen.pls"), 1);
    EXPECT_EQ(connection, 2);
}

TEST_F(RecordingSessionTest, WithoutMetaintTheWholeBodyIsAudioAndAacGetsItsExtension)
{
    server.route("/plain", FixtureServer::Script::head("HTTP/1.0 200 OK", {{"icy-metaint", "0"}, {"Content-Type", "audio/aac"}})
                               .send(IcyStream::adtsFrame(2500, 'q') + IcyStream::adtsFrame(2500, 'r'))
                               .hang());
    RadioEngineSettings settings = RadioEngineSettings::loadGlobal();
    settings.skipJingles = false; // the station's name has no " - " and would count as a jingle
    EXPECT_TRUE(EngineSettingsStore().setGlobal(settings).ok);
    const QString url = QString::fromLatin1(server.url("/plain"));
    auto session = std::make_unique<RecordingSession>(Station::custom(url, "Plain FM"), std::nullopt, context);
    session->onTrackSaved = [this](const Track &t) { saved.push_back(t); };
    // The segment is buffered in memory until it is closed; wait for the connection.
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/plain") == 1; }));
    waitUntil([] { return false; }, 300);
    session->stop();
    ASSERT_TRUE(waitUntil([&] { return session->isIdle(); }));
    ASSERT_EQ(saved.size(), 1u);
    // No title ever came: the station's name names it, and the bytes are untouched.
    EXPECT_TRUE(saved[0].filePath->endsWith(".aac"));
    EXPECT_EQ(readFile(*saved[0].filePath), IcyStream::adtsFrame(2500, 'q') + IcyStream::adtsFrame(2500, 'r'));
}

} // namespace
