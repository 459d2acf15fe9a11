#include "app/covercache.h"
#include "app/mprisservice.h"
#include "engine/recordingcontext.h"
#include "engine/stationlistener.h"
#include "library/track.h"
#include "library/transitionsettings.h"
#include "platform/dbuslink.h"
#include "playback/audioengine.h"
#include "playback/player.h"

#include "dbusfixture.h"
#include "fixtureserver.h"
#include "testenv.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDir>
#include <QStandardPaths>
#include <QUrl>

#include <gtest/gtest.h>

#include <memory>

namespace {

const QString kRoot = QStringLiteral("org.mpris.MediaPlayer2");
const QString kPlayer = QStringLiteral("org.mpris.MediaPlayer2.Player");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");
const QString kPath = QStringLiteral("/org/mpris/MediaPlayer2");

// A variant off the bus as a plain value: nested a{sv} maps arrive as QDBusArgument.
QVariant plain(const QVariant &value)
{
    if (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        return plain(value.value<QDBusVariant>().variant());
    if (value.userType() == qMetaTypeId<QDBusArgument>()) {
        const auto argument = value.value<QDBusArgument>();
        if (argument.currentSignature() == QLatin1String("a{sv}")) {
            QVariantMap map = qdbus_cast<QVariantMap>(argument);
            for (QVariant &entry : map)
                entry = plain(entry);
            return map;
        }
    }
    return value;
}

} // namespace

// What a desktop shell hears from the player: PropertiesChanged and Seeked, received on the
// test's own connection.
class MprisListener : public QObject {
    Q_OBJECT

public:
    struct Change {
        QString interface;
        QVariantMap changed;
    };

    explicit MprisListener(QDBusConnection &connection)
    {
        connection.connect(QString(), kPath, kProperties, QStringLiteral("PropertiesChanged"), this,
            SLOT(onPropertiesChanged(QString, QVariantMap, QStringList)));
        connection.connect(QString(), kPath, kPlayer, QStringLiteral("Seeked"), this, SLOT(onSeeked(qlonglong)));
    }

    QList<Change> changes;
    QList<qlonglong> seeks;

    // The last announced value of `property`, absent when none was announced.
    [[nodiscard]] std::optional<QVariant> last(const QString &interface, const QString &property) const
    {
        for (auto it = changes.crbegin(); it != changes.crend(); ++it) {
            if (it->interface == interface && it->changed.contains(property))
                return it->changed.value(property);
        }
        return std::nullopt;
    }

public Q_SLOTS:
    void onPropertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &)
    {
        QVariantMap values;
        for (auto it = changed.cbegin(); it != changed.cend(); ++it)
            values.insert(it.key(), plain(it.value()));
        changes.append({ interface, values });
    }
    void onSeeked(qlonglong position) { seeks.append(position); }
};

namespace {

// A real Player on the null output with three short files made by ffmpeg (the first with an
// embedded PNG cover), published by MprisService on a private session bus; the test plays
// the desktop's part over a second connection.
class MprisServiceTest : public PrivateBusTest {
protected:
    void SetUp() override
    {
        PrivateBusTest::SetUp();
        if (setUpFailed())
            return;
        makeFiles();
        if (HasFatalFailure())
            return;
        AudioEngine::Options options;
        options.output = AudioEngine::Output::null;
        engine = std::make_unique<AudioEngine>(options);
        QString error;
        ASSERT_TRUE(engine->start(&error)) << error.toStdString();
        settings = std::make_unique<TransitionSettings>();
        player = std::make_unique<Player>(*engine, *settings, nullptr);
        link = connectedLink();
        context = std::make_unique<RecordingContext>(http, nullptr);
        context->ffmpegPath = QStandardPaths::findExecutable(QStringLiteral("ffmpeg")); // the relay's
        stations = std::make_unique<StationListener>(*context, nullptr);
        service = std::make_unique<MprisService>(*link, *player, stations.get());
        listener = std::make_unique<MprisListener>(bus().connection());
        ASSERT_TRUE(waitUntil([&] { return service->state() != MprisService::State::connecting; }, 10000));
        ASSERT_EQ(service->state(), MprisService::State::published);
    }

    void TearDown() override
    {
        listener.reset();
        service.reset();
        stations.reset();
        context.reset();
        player.reset();
        if (engine)
            engine->stop();
    }

    void makeFiles()
    {
        const QString dir = home.file(QStringLiteral("Music"));
        // Not beside the songs: a picture there would count as the cover of each of them.
        const QString cover = home.file(QStringLiteral("cover.png"));
        QString error;
        ASSERT_TRUE(runProgram(QStringLiteral("ffmpeg"),
            { "-v", "error", "-y", "-f", "lavfi", "-i", "color=c=red:s=8x8", "-frames:v", "1", cover }, &error))
            << error.toStdString();
        coverBytes = readFile(cover);
        ASSERT_FALSE(coverBytes.isEmpty());
        const QStringList sine { "-v", "error", "-y", "-f", "lavfi", "-i", "sine=frequency=440:duration=30" };
        const QString first = dir + QStringLiteral("/one.mp3");
        ASSERT_TRUE(runProgram(QStringLiteral("ffmpeg"),
            sine
                + QStringList { "-i", cover, "-map", "0:a", "-map", "1:v", "-c:a", "libmp3lame", "-c:v", "png",
                    "-disposition:v", "attached_pic", "-id3v2_version", "3", first },
            &error))
            << error.toStdString();
        const QString second = dir + QStringLiteral("/two.flac");
        ASSERT_TRUE(runProgram(QStringLiteral("ffmpeg"), sine + QStringList { second }, &error)) << error.toStdString();
        const QString third = dir + QStringLiteral("/three.wav");
        ASSERT_TRUE(runProgram(QStringLiteral("ffmpeg"), sine + QStringList { third }, &error)) << error.toStdString();
        const QStringList paths { first, second, third };
        for (int i = 0; i < 3; ++i) {
            Track track(QStringLiteral("Song %1").arg(i + 1), QStringLiteral("Artist %1").arg(i + 1),
                QStringLiteral("Album"), 30.0, QDateTime::currentDateTimeUtc(), QString(), false, 0,
                QStringLiteral("radio"), std::nullopt, paths[i]);
            track.id = 11 + i;
            tracks << track;
        }
    }

    // Waits for the reply: the service answers on this very thread, so a blocking call
    // would wait for itself.
    QDBusMessage call(const QString &interface, const QString &method, const QVariantList &args = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service->busName(), kPath, interface, method);
        message.setArguments(args);
        QDBusPendingCall pending = bus().connection().asyncCall(message, 10000);
        EXPECT_TRUE(waitUntil([&] { return pending.isFinished(); }, 10000));
        return pending.reply();
    }

    QVariant get(const QString &interface, const QString &property)
    {
        const QDBusMessage reply = call(kProperties, QStringLiteral("Get"), { interface, property });
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return plain(reply.arguments().value(0));
    }

    bool set(const QString &interface, const QString &property, const QVariant &value)
    {
        const QDBusMessage reply = call(
            kProperties, QStringLiteral("Set"), { interface, property, QVariant::fromValue(QDBusVariant(value)) });
        return reply.type() == QDBusMessage::ReplyMessage;
    }

    QVariantMap metadata() { return get(kPlayer, QStringLiteral("Metadata")).toMap(); }
    static QString trackIdOf(const QVariantMap &metadata)
    {
        return metadata.value(QStringLiteral("mpris:trackid")).value<QDBusObjectPath>().path();
    }
    qlonglong position() { return get(kPlayer, QStringLiteral("Position")).toLongLong(); }

    bool waitForStatus(const QString &status)
    {
        return waitUntil([&] { return get(kPlayer, QStringLiteral("PlaybackStatus")).toString() == status; }, 10000);
    }

    void startQueue()
    {
        player->playQueue(tracks, 0);
        ASSERT_TRUE(waitForStatus(QStringLiteral("Playing")));
    }

    TestHome home;
    QByteArray coverBytes;
    QList<Track> tracks;
    std::unique_ptr<AudioEngine> engine;
    std::unique_ptr<TransitionSettings> settings;
    std::unique_ptr<Player> player;
    std::unique_ptr<DBusLink> link;
    HttpClient http;
    std::unique_ptr<RecordingContext> context;
    std::unique_ptr<StationListener> stations;
    std::unique_ptr<MprisService> service;
    std::unique_ptr<MprisListener> listener;
};

TEST_F(MprisServiceTest, OwnsItsNameAndTellsWhoItIs)
{
    if (setUpFailed())
        return;
    EXPECT_EQ(service->busName(), QStringLiteral("org.mpris.MediaPlayer2.orvida"));
    EXPECT_TRUE(bus().connection().interface()->isServiceRegistered(service->busName()));

    const QDBusMessage reply = call(kProperties, QStringLiteral("GetAll"), { kRoot });
    ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    const QVariantMap root = qdbus_cast<QVariantMap>(reply.arguments().value(0).value<QDBusArgument>());
    EXPECT_EQ(root.value(QStringLiteral("Identity")).toString(), QStringLiteral("Orvida"));
    EXPECT_EQ(root.value(QStringLiteral("DesktopEntry")).toString(), QStringLiteral("app.orvida.Orvida"));
    EXPECT_FALSE(root.value(QStringLiteral("HasTrackList")).toBool());
    // No window has said how to raise or quit it yet.
    EXPECT_FALSE(root.value(QStringLiteral("CanRaise")).toBool());
    EXPECT_FALSE(root.value(QStringLiteral("CanQuit")).toBool());

    int raised = 0;
    int quits = 0;
    auto window = std::make_unique<QObject>();
    service->setWindowHooks(
        window.get(), [&] { ++raised; }, [&] { ++quits; });
    ASSERT_TRUE(waitUntil([&] { return listener->last(kRoot, QStringLiteral("CanRaise")) == QVariant(true); }));
    EXPECT_EQ(listener->last(kRoot, QStringLiteral("CanQuit")), QVariant(true));
    EXPECT_EQ(call(kRoot, QStringLiteral("Raise")).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(raised, 1);
    EXPECT_EQ(call(kRoot, QStringLiteral("Quit")).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(quits, 1);

    // The window gone, the desktop is told it cannot be raised any more.
    window.reset();
    ASSERT_TRUE(waitUntil([&] { return listener->last(kRoot, QStringLiteral("CanRaise")) == QVariant(false); }));
    call(kRoot, QStringLiteral("Raise"));
    EXPECT_EQ(raised, 1);

    // The name goes with the service.
    service.reset();
    EXPECT_TRUE(waitUntil([&] {
        return !bus().connection().interface()->isServiceRegistered(QStringLiteral("org.mpris.MediaPlayer2.orvida"));
    }));
}

TEST_F(MprisServiceTest, ASecondPlayerTakesAnInstanceName)
{
    if (setUpFailed())
        return;
    auto otherLink = connectedLink();
    MprisService other(*otherLink, *player);
    ASSERT_TRUE(waitUntil([&] { return other.state() != MprisService::State::connecting; }, 10000));
    ASSERT_EQ(other.state(), MprisService::State::published);
    EXPECT_EQ(other.busName(),
        QStringLiteral("org.mpris.MediaPlayer2.orvida.instance%1").arg(QCoreApplication::applicationPid()));
}

TEST_F(MprisServiceTest, MetadataFollowsTheCurrentTrackWithItsCover)
{
    if (setUpFailed())
        return;
    EXPECT_EQ(trackIdOf(metadata()), QStringLiteral("/org/mpris/MediaPlayer2/TrackList/NoTrack"));
    EXPECT_EQ(get(kPlayer, QStringLiteral("PlaybackStatus")).toString(), QStringLiteral("Stopped"));
    EXPECT_FALSE(get(kPlayer, QStringLiteral("CanPause")).toBool());

    startQueue();
    QVariantMap now = metadata();
    EXPECT_EQ(trackIdOf(now), QStringLiteral("/app/orvida/Orvida/track/11"));
    EXPECT_EQ(now.value(QStringLiteral("xesam:title")).toString(), QStringLiteral("Song 1"));
    EXPECT_EQ(now.value(QStringLiteral("xesam:artist")).toStringList(), QStringList { QStringLiteral("Artist 1") });
    EXPECT_EQ(now.value(QStringLiteral("xesam:album")).toString(), QStringLiteral("Album"));
    EXPECT_NEAR(now.value(QStringLiteral("mpris:length")).toLongLong(), 30'000'000, 100'000);
    EXPECT_TRUE(get(kPlayer, QStringLiteral("CanPause")).toBool());
    EXPECT_TRUE(get(kPlayer, QStringLiteral("CanSeek")).toBool());
    EXPECT_TRUE(get(kPlayer, QStringLiteral("CanGoNext")).toBool());

    // The cover is extracted in the background and announced when it is saved.
    ASSERT_TRUE(waitUntil(
        [&] {
            const auto announced = listener->last(kPlayer, QStringLiteral("Metadata"));
            return announced && announced->toMap().contains(QStringLiteral("mpris:artUrl"));
        },
        10000));
    const QUrl art(metadata().value(QStringLiteral("mpris:artUrl")).toString());
    ASSERT_TRUE(art.isLocalFile()) << art.toString().toStdString();
    EXPECT_EQ(art.toLocalFile(), home.file(QStringLiteral("cache/Orvida/covers/11.png")));
    EXPECT_EQ(readFile(art.toLocalFile()), coverBytes);

    bool lookedUpSecond = false;
    QObject::connect(
        &service->covers(), &CoverCache::coverLookedUp, service.get(), [&](qint64 id, const QString &path) {
            if (id == 12) {
                lookedUpSecond = true;
                EXPECT_TRUE(path.isEmpty());
            }
        });
    EXPECT_EQ(call(kPlayer, QStringLiteral("Next")).type(), QDBusMessage::ReplyMessage);
    ASSERT_TRUE(waitUntil([&] {
        const auto announced = listener->last(kPlayer, QStringLiteral("Metadata"));
        return announced && trackIdOf(announced->toMap()) == QStringLiteral("/app/orvida/Orvida/track/12");
    }));
    EXPECT_EQ(metadata().value(QStringLiteral("xesam:title")).toString(), QStringLiteral("Song 2"));
    // The second file has no picture: once its look-up has ended, still no art URL.
    ASSERT_TRUE(waitUntil([&] { return lookedUpSecond; }));
    EXPECT_FALSE(metadata().contains(QStringLiteral("mpris:artUrl")));
    EXPECT_TRUE(QDir(home.file(QStringLiteral("cache/Orvida/covers")))
                    .entryList({ QStringLiteral("12.*") }, QDir::Files)
                    .isEmpty());
}

TEST_F(MprisServiceTest, PlayPauseAndStopAreAnnounced)
{
    if (setUpFailed())
        return;
    startQueue();
    listener->changes.clear();
    EXPECT_EQ(call(kPlayer, QStringLiteral("PlayPause")).type(), QDBusMessage::ReplyMessage);
    ASSERT_TRUE(waitUntil([&] {
        return listener->last(kPlayer, QStringLiteral("PlaybackStatus")) == QVariant(QStringLiteral("Paused"));
    }));
    EXPECT_EQ(player->status(), Player::Status::paused);
    // Position is read, never announced.
    for (const auto &change : listener->changes)
        EXPECT_FALSE(change.changed.contains(QStringLiteral("Position")));

    const qlonglong held = position();

    call(kPlayer, QStringLiteral("Play"));
    ASSERT_TRUE(waitUntil([&] {
        return listener->last(kPlayer, QStringLiteral("PlaybackStatus")) == QVariant(QStringLiteral("Playing"));
    }));
    // Position is live: it moves while playing.
    EXPECT_TRUE(waitUntil([&] { return position() > held + 200'000; }));

    call(kPlayer, QStringLiteral("Stop"));
    ASSERT_TRUE(waitUntil([&] {
        return listener->last(kPlayer, QStringLiteral("PlaybackStatus")) == QVariant(QStringLiteral("Stopped"));
    }));
}

TEST_F(MprisServiceTest, SeeksAreAnnouncedAndStaleTrackIdsIgnored)
{
    if (setUpFailed())
        return;
    startQueue();
    const QString current = trackIdOf(metadata());

    // A client that still shows another track asks for a position in it: nothing moves.
    call(kPlayer, QStringLiteral("SetPosition"),
        { QVariant::fromValue(QDBusObjectPath(QStringLiteral("/app/orvida/Orvida/track/999"))),
            qlonglong(20'000'000) });
    EXPECT_LT(position(), 10'000'000);
    EXPECT_TRUE(listener->seeks.isEmpty());
    // Past the end of the track: ignored too.
    call(kPlayer, QStringLiteral("SetPosition"),
        { QVariant::fromValue(QDBusObjectPath(current)), qlonglong(40'000'000) });
    EXPECT_LT(position(), 10'000'000);

    call(kPlayer, QStringLiteral("SetPosition"),
        { QVariant::fromValue(QDBusObjectPath(current)), qlonglong(20'000'000) });
    ASSERT_TRUE(waitUntil([&] { return !listener->seeks.isEmpty(); }));
    EXPECT_NEAR(listener->seeks.last(), 20'000'000, 50'000);
    EXPECT_GE(position(), 20'000'000 - 50'000);

    call(kPlayer, QStringLiteral("Seek"), { qlonglong(-5'000'000) });
    ASSERT_TRUE(waitUntil([&] { return listener->seeks.size() == 2; }));
    EXPECT_NEAR(listener->seeks.last(), 15'000'000, 1'000'000);
    EXPECT_LT(position(), 20'000'000);

    // Past the end, Seek goes on to the next track.
    call(kPlayer, QStringLiteral("Seek"), { qlonglong(60'000'000) });
    EXPECT_TRUE(waitUntil([&] { return trackIdOf(metadata()) == QStringLiteral("/app/orvida/Orvida/track/12"); }));
}

TEST_F(MprisServiceTest, WritablePropertiesReachThePlayer)
{
    if (setUpFailed())
        return;
    startQueue();

    ASSERT_TRUE(set(kPlayer, QStringLiteral("Volume"), 0.25));
    EXPECT_DOUBLE_EQ(player->volume(), 0.25);
    ASSERT_TRUE(waitUntil([&] { return listener->last(kPlayer, QStringLiteral("Volume")) == QVariant(0.25); }));
    // More than 1 would amplify; the player's fader stops at 1.
    ASSERT_TRUE(set(kPlayer, QStringLiteral("Volume"), 1.5));
    EXPECT_DOUBLE_EQ(player->volume(), 1.0);
    // The player's own change is announced as well.
    player->setVolume(0.5);
    ASSERT_TRUE(waitUntil([&] { return listener->last(kPlayer, QStringLiteral("Volume")) == QVariant(0.5); }));

    for (const auto &[text, repeat] : { std::pair { "Track", Player::Repeat::one },
             std::pair { "Playlist", Player::Repeat::all }, std::pair { "None", Player::Repeat::off } }) {
        ASSERT_TRUE(set(kPlayer, QStringLiteral("LoopStatus"), QString::fromLatin1(text)));
        EXPECT_EQ(player->repeat(), repeat) << text;
        EXPECT_EQ(get(kPlayer, QStringLiteral("LoopStatus")).toString(), QString::fromLatin1(text));
        EXPECT_TRUE(waitUntil([&] {
            return listener->last(kPlayer, QStringLiteral("LoopStatus")) == QVariant(QString::fromLatin1(text));
        })) << text;
    }
    set(kPlayer, QStringLiteral("LoopStatus"), QStringLiteral("Forever"));
    EXPECT_EQ(player->repeat(), Player::Repeat::off);

    ASSERT_TRUE(set(kPlayer, QStringLiteral("Shuffle"), true));
    EXPECT_TRUE(player->shuffle());
    EXPECT_TRUE(get(kPlayer, QStringLiteral("Shuffle")).toBool());
    EXPECT_TRUE(waitUntil([&] { return listener->last(kPlayer, QStringLiteral("Shuffle")) == QVariant(true); }));
    player->setShuffle(false);
    EXPECT_TRUE(waitUntil([&] { return listener->last(kPlayer, QStringLiteral("Shuffle")) == QVariant(false); }));

    EXPECT_DOUBLE_EQ(get(kPlayer, QStringLiteral("Rate")).toDouble(), 1.0);
    EXPECT_DOUBLE_EQ(get(kPlayer, QStringLiteral("MinimumRate")).toDouble(), 1.0);
    EXPECT_DOUBLE_EQ(get(kPlayer, QStringLiteral("MaximumRate")).toDouble(), 1.0);

    // No addresses are opened: the call is answered and changes nothing.
    EXPECT_TRUE(get(kRoot, QStringLiteral("SupportedUriSchemes")).toStringList().isEmpty());
    const QString uri = QUrl::fromLocalFile(home.file(QStringLiteral("Music/two.flac"))).toString();
    EXPECT_EQ(call(kPlayer, QStringLiteral("OpenUri"), {uri}).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(trackIdOf(metadata()), QStringLiteral("/app/orvida/Orvida/track/11"));
}

// Most machines this runs on have no session bus: the service stays quiet and the player is
// unaffected.
TEST(MprisServiceWithoutBus, StaysQuietAndThePlayerWorks)
{
    TestHome home;
    AudioEngine::Options options;
    options.output = AudioEngine::Output::null;
    AudioEngine engine(options);
    QString error;
    ASSERT_TRUE(engine.start(&error)) << error.toStdString();
    TransitionSettings settings;
    Player player(engine, settings, nullptr);

    DBusLink none(std::nullopt, QStringLiteral("session"));
    MprisService quiet(none, player);
    EXPECT_EQ(quiet.state(), MprisService::State::unavailable);
    EXPECT_TRUE(quiet.busName().isEmpty());

    // An address where no daemon listens settles the same way, without hanging.
    DBusLink dead(QStringLiteral("unix:path=") + home.file(QStringLiteral("no-bus")), QStringLiteral("session"));
    MprisService alsoQuiet(dead, player);
    ASSERT_TRUE(waitUntil([&] { return alsoQuiet.state() != MprisService::State::connecting; }, 10000));
    EXPECT_EQ(alsoQuiet.state(), MprisService::State::unavailable);

    // Changes that would be announced go nowhere, without harm.
    player.setVolume(0.3);
    player.setShuffle(true);
    player.setRepeat(Player::Repeat::all);
    QCoreApplication::processEvents();
    EXPECT_DOUBLE_EQ(player.volume(), 0.3);
    engine.stop();
}

// While a station is heard the desktop sees it: its live title, the station as the artist,
// no length and no seeking, play and pause acting on the stream; the queue again once
// listening ends. The station plays through the real relay on the null output.
TEST_F(MprisServiceTest, ALiveStationShowsItsTitleCannotSeekAndPauses)
{
    if (setUpFailed())
        return;
    startQueue();
    ASSERT_TRUE(get(kPlayer, QStringLiteral("CanSeek")).toBool());
    FixtureServer server;
    // 16 kB/s of an MP3 file, over and over.
    server.route("/live", [audio = readFile(tracks[0].filePath.value())](const FixtureServer::Request &) {
        auto offset = std::make_shared<qsizetype>(0);
        return FixtureServer::Script::head("HTTP/1.0 200 OK", { { "Content-Type", "audio/mpeg" } })
            .produce(250, [audio, offset] {
                const QByteArray piece = audio.mid(*offset, 4000);
                *offset = (*offset + 4000) % audio.size();
                return piece;
            });
    });
    QObject::connect(stations.get(), &StationListener::streamReady, player.get(), &Player::playLive);
    const Station station = Station::custom(QString::fromLatin1(server.url("/live")), QStringLiteral("Live FM"));
    stations->start(station);
    // What the station plays, as the listener announces it.
    Q_EMIT stations->titleChanged(QStringLiteral("Artist - Live Song"));

    const auto announcedTitle = [&] {
        const auto metadata = listener->last(kPlayer, QStringLiteral("Metadata"));
        return metadata ? metadata->toMap().value(QStringLiteral("xesam:title")).toString() : QString();
    };
    ASSERT_TRUE(waitUntil([&] { return announcedTitle() == QStringLiteral("Artist - Live Song"); }));
    EXPECT_EQ(listener->last(kPlayer, QStringLiteral("CanSeek")), QVariant(false));
    const QVariantMap live = metadata();
    EXPECT_EQ(live.value(QStringLiteral("xesam:title")).toString(), QStringLiteral("Artist - Live Song"));
    EXPECT_EQ(live.value(QStringLiteral("xesam:artist")).toStringList(), QStringList { QStringLiteral("Live FM") });
    EXPECT_FALSE(live.contains(QStringLiteral("mpris:length")));
    EXPECT_TRUE(trackIdOf(live).startsWith(QStringLiteral("/app/orvida/Orvida/live/")));
    EXPECT_FALSE(get(kPlayer, QStringLiteral("CanSeek")).toBool());
    EXPECT_FALSE(get(kPlayer, QStringLiteral("CanGoNext")).toBool());
    EXPECT_TRUE(get(kPlayer, QStringLiteral("CanPause")).toBool());

    // Sound through the relay; the position counts from its start.
    // (The queue played before: its "Playing" is not the stream's.)
    ASSERT_TRUE(waitUntil([&] { return player->isLive() && player->status() == Player::Status::playing; }, 15000));
    EXPECT_EQ(get(kPlayer, QStringLiteral("PlaybackStatus")).toString(), QStringLiteral("Playing"));
    EXPECT_LT(position(), 10'000'000);
    // A media key's Next would leave the station for the queue: it does nothing.
    call(kPlayer, QStringLiteral("Next"));
    EXPECT_TRUE(player->isLive());
    call(kPlayer, QStringLiteral("PlayPause"));
    EXPECT_TRUE(waitForStatus(QStringLiteral("Paused")));
    call(kPlayer, QStringLiteral("PlayPause"));
    EXPECT_TRUE(waitForStatus(QStringLiteral("Playing")));
    EXPECT_TRUE(player->isLive());

    stations->stop();
    player->stopLive();
    ASSERT_TRUE(waitUntil([&] { return announcedTitle() != QStringLiteral("Artist - Live Song"); }));
    EXPECT_FALSE(trackIdOf(metadata()).startsWith(QStringLiteral("/app/orvida/Orvida/live/")));
}

} // namespace

#include "mprisservice_test.moc"
