#include "engine/recordingsession.h"

#include "encodedaudio.h"
#include "icystream.h"
#include "recorderfixture.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

class RadioRecorderTest : public RecorderFixture {
protected:
    // A station playing `titles`, a new one every three blocks of 20 ms.
    Station station(const QByteArray &path, const QList<QByteArray> &titles = { "A - One", "B - Two", "C - Three" })
    {
        server.route(path, IcyStream::station(titles, 3, 20));
        return Station::custom(QString::fromLatin1(server.url(path)), QString::fromLatin1(path.mid(1)));
    }

    RadioRecorder::TrackCallback intoLibrary()
    {
        return [this](const Track &track) { EXPECT_TRUE(RadioRecorder::upsertIntoLibrary(track, *library)); };
    }

    QStringList sessionIds() const
    {
        QStringList ids;
        for (const RecordingSession *s : recorder.sessions())
            ids << s->id();
        return ids;
    }

    static Track savedSong(const QString &title, const QString &path, const QDateTime &added)
    {
        return Track(title, QStringLiteral("Artist"), QStringLiteral("Album"), 200, added, QString(), false, 0,
            QStringLiteral("radio"), QStringLiteral("Station FM"), path);
    }
};

TEST_F(RadioRecorderTest, KeepsOneSessionPerStationInStartOrder)
{
    const Station first = station("/first");
    const Station second = station("/second");
    QSignalSpy started(&recorder, &RadioRecorder::sessionStarted);

    EXPECT_TRUE(recorder.start(first));
    EXPECT_TRUE(recorder.start(second));
    // Asking again, even for a whole show, changes nothing.
    EXPECT_FALSE(recorder.start(first, QStringLiteral("Whole show")));
    EXPECT_EQ(sessionIds(), QStringList({ first.id, second.id }));
    EXPECT_FALSE(recorder.session(first.id)->fullShowTitle().has_value());
    EXPECT_EQ(started.count(), 2);

    EXPECT_TRUE(recorder.isRecordingStation(first));
    EXPECT_FALSE(recorder.isRecordingStation(Station::custom(QStringLiteral("http://127.0.0.1:1/x"), "Other")));
    ASSERT_TRUE(waitUntil([&] { return recorder.streamTitle(first) == QStringLiteral("B - Two"); }));
    EXPECT_FALSE(recorder.streamTitle(Station::custom(QStringLiteral("http://127.0.0.1:1/x"), "Other")).has_value());

    recorder.stop();
    EXPECT_TRUE(recorder.sessions().isEmpty());
    recorder.waitForSaves();
}

TEST_F(RadioRecorderTest, AStoppedSessionLeavesAtOnceAndItsLastSongStillReachesTheLibrary)
{
    const Station kept = station("/kept");
    const Station stopped = station("/stopped", { "A - Only", "A - Only" });
    QSignalSpy ended(&recorder, &RadioRecorder::sessionEnded);
    QSignalSpy changed(&recorder, &RadioRecorder::sessionsChanged);
    recorder.start(kept);
    recorder.start(stopped, std::nullopt, intoLibrary());
    QPointer<RecordingSession> session = recorder.session(stopped.id);
    ASSERT_TRUE(waitUntil([&] { return recorder.streamTitle(stopped) == QStringLiteral("A - Only"); }));
    waitUntil([] { return false; }, 100); // some audio under the title

    changed.clear();
    recorder.stop(stopped);
    // Gone from the list before its file is written; the other station records on.
    EXPECT_EQ(sessionIds(), QStringList { kept.id });
    EXPECT_EQ(changed.count(), 1);
    ASSERT_EQ(ended.count(), 1);
    EXPECT_EQ(ended.first().first().value<Station>(), stopped);
    EXPECT_EQ(recorder.lastStation(), stopped);
    EXPECT_TRUE(library->allTracks().isEmpty());

    recorder.waitForSaves();
    const QList<Track> tracks = library->allTracks();
    ASSERT_EQ(tracks.size(), 1);
    EXPECT_EQ(tracks[0].artist, "A");
    EXPECT_EQ(tracks[0].title, "Only");
    EXPECT_EQ(tracks[0].station, "stopped");
    // Once its save is back the session is deleted.
    EXPECT_TRUE(waitUntil([&] { return session.isNull(); }));
    recorder.stop();
    recorder.waitForSaves();
}

TEST_F(RadioRecorderTest, ASessionThatGivesUpLeavesTheListAndNamesItsStation)
{
    quint16 deadPort = 0;
    {
        FixtureServer gone;
        deadPort = gone.port();
    }
    const Station dead = Station::custom(QStringLiteral("http://127.0.0.1:%1/x").arg(deadPort), "Dead FM");
    const Station alive = station("/alive");
    QSignalSpy ended(&recorder, &RadioRecorder::sessionEnded);
    QSignalSpy errors(&recorder, &RadioRecorder::sessionErrorChanged);
    recorder.start(alive);
    recorder.start(dead);
    QPointer<RecordingSession> session = recorder.session(dead.id);

    ASSERT_TRUE(waitUntil([&] { return ended.count() == 1; }));
    EXPECT_EQ(ended.first().at(1).value<SessionOutcome>(), SessionOutcome::GaveUp);
    EXPECT_EQ(sessionIds(), QStringList { alive.id });
    EXPECT_EQ(recorder.lastStation(), dead);
    EXPECT_EQ(recorder.errorMessage(), "Stream unterbrochen");
    ASSERT_EQ(errors.count(), 1);
    EXPECT_EQ(errors.first().at(0).toString(), dead.id);
    EXPECT_TRUE(waitUntil([&] { return session.isNull(); }));

    // The station can be recorded again, and a new start clears the old error.
    EXPECT_TRUE(recorder.start(dead));
    EXPECT_FALSE(recorder.errorMessage().has_value());
    recorder.stop();
    recorder.waitForSaves();
}

TEST_F(RadioRecorderTest, ASecondTakeOfTheSameSongUpdatesItsLibraryEntry)
{
    // The last song is recorded twice, the second time longer: the saver replaces the file
    // under its name, and the library keeps one entry for it. ffmpeg tells the lengths
    // apart, so the station plays real MP3.
    context.ffmpegPath = EncodedAudio::kFfmpeg;
    const QByteArray mp3 = EncodedAudio::encode(
        home.file(QStringLiteral("tone.mp3")), { "-f", "lavfi", "-i", "sine=frequency=440:duration=20", "-b:a", "128k" });
    ASSERT_GT(mp3.size(), 300'000);
    server.route("/twice", IcyStream::station({ "A - Song", "B - Next" }, 3, 20, mp3));
    const Station twice = Station::custom(QString::fromLatin1(server.url("/twice")), "twice");
    QStringList songPaths;
    QList<double> songDurations;
    QObject::connect(&recorder, &RadioRecorder::trackSaved, [&](const QString &, const Track &track) {
        if (track.title == "Next") {
            songPaths << *track.filePath;
            songDurations << track.duration;
        }
    });
    for (int take = 0; take < 2; ++take) {
        recorder.start(twice, std::nullopt, intoLibrary());
        ASSERT_TRUE(waitUntil([&] { return recorder.streamTitle(twice) == QStringLiteral("B - Next"); }));
        waitUntil([] { return false; }, take == 0 ? 100 : 400);
        recorder.stop(twice);
        recorder.waitForSaves();
    }
    QList<Track> songs;
    for (const Track &t : library->allTracks()) {
        if (t.title == "Next")
            songs << t;
    }
    ASSERT_EQ(songPaths.size(), 2);
    EXPECT_EQ(songPaths[0], songPaths[1]);
    EXPECT_GT(songDurations[1], songDurations[0]);
    ASSERT_EQ(songs.size(), 1);
    EXPECT_EQ(*songs[0].filePath, songPaths[0]);
    EXPECT_EQ(songs[0].duration, songDurations[1]);
}

TEST_F(RadioRecorderTest, UpsertUpdatesTheSongFieldsAndKeepsWhatTheUserDid)
{
    const QString path = home.file(QStringLiteral("Music/Orvida/Radio/Artist - Song.mp3"));
    const QDateTime firstAdded = QDateTime::fromMSecsSinceEpoch(1700000000000, Qt::UTC);
    Track original = savedSong(QStringLiteral("Song"), path, firstAdded);
    original.playCount = 7;
    original.isFavorite = true;
    original.genre = QStringLiteral("Jazz");
    const std::optional<qint64> id = library->insert(original);
    ASSERT_TRUE(id);

    Track longer(QStringLiteral("Song (Extended)"), QStringLiteral("Artist feat. X"), QStringLiteral("Deluxe"), 320,
        QDateTime::currentDateTimeUtc(), QString(), false, 0, QStringLiteral("radio"), QStringLiteral("Other FM"),
        path);
    ASSERT_TRUE(RadioRecorder::upsertIntoLibrary(longer, *library));

    const QList<Track> tracks = library->allTracks();
    ASSERT_EQ(tracks.size(), 1);
    const Track &t = tracks[0];
    // The new take's song fields; the first take's id, date and the user's own fields.
    EXPECT_EQ((QStringList { t.title, t.artist, t.album, t.station.value_or(""), t.genre }),
        (QStringList { "Song (Extended)", "Artist feat. X", "Deluxe", "Other FM", "Jazz" }));
    EXPECT_EQ((std::tuple { t.id, t.duration, t.dateAdded, t.playCount, t.isFavorite }),
        (std::tuple { *id, 320.0, firstAdded, qint64(7), true }));

    // Another path, or none at all, is a new entry every time.
    ASSERT_TRUE(RadioRecorder::upsertIntoLibrary(savedSong("Other", path + ".2", firstAdded), *library));
    Track noFile = savedSong(QStringLiteral("Capture"), QString(), firstAdded);
    noFile.filePath.reset();
    ASSERT_TRUE(RadioRecorder::upsertIntoLibrary(noFile, *library));
    ASSERT_TRUE(RadioRecorder::upsertIntoLibrary(noFile, *library));
    EXPECT_EQ(library->allTracks().size(), 4);
}

} // namespace
