#pragma once

#include "app/application.h"
#include "library/librarystore.h"
#include "playback/audioengine.h"
#include "playback/mixstate.h"
#include "playback/player.h"

#include "appfixture.h"
#include "testaudio.h"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>
#include <vector>

// The window's services with the player on the offline output, and library tracks whose
// files ffmpeg makes for the test. Nothing plays by itself: advance() renders the output
// block by block and runs the player's tick in between, as a render does.
class PlayerFixture : public AppFixture {
protected:
    // Library tracks of `seconds` each, "Song 1", "Song 2", ... by "Artist 1", ..., added
    // a minute apart (the library table shows the newest first). Ids in order.
    QList<Track> addSongs(int count, double seconds = 4.0)
    {
        QList<Track> tracks;
        const QDateTime base(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);
        for (int i = 1; i <= count; ++i) {
            const QString path = home.file(QStringLiteral("Music/song%1.wav").arg(i));
            TestAudio::makeTone(path, seconds, 220 * i);
            tracks << Track(QStringLiteral("Song %1").arg(i), QStringLiteral("Artist %1").arg(i),
                QStringLiteral("Album"), seconds, base.addSecs(60 * i), QString(), false, 0, QStringLiteral("radio"),
                QStringLiteral("FM"), path);
        }
        const QList<qint64> ids = app->library()->insertTracks(tracks);
        EXPECT_EQ(ids.size(), count);
        for (qsizetype i = 0; i < ids.size(); ++i)
            tracks[i].id = ids[i];
        return tracks;
    }

    // Lets `seconds` of output pass, in blocks of the real-time tick's length. A plan the
    // player is computing is waited for, as a render does, so the result does not depend
    // on the machine's speed.
    void advance(double seconds)
    {
        AudioEngine &engine = app->audioEngine();
        Player &player = app->player();
        const qint64 blockFrames = engine.sampleRate() / 50;
        std::vector<float> block(size_t(2 * blockFrames));
        for (qint64 left = std::llround(seconds * engine.sampleRate()); left > 0; left -= blockFrames) {
            player.transitionTick();
            if (std::optional<QFuture<std::optional<TransitionPlan>>> task = player.mixState().planTask;
                task && !task->isFinished()) {
                task->waitForFinished();
                QCoreApplication::processEvents(); // the plan comes back as a queued call
                player.transitionTick();
            }
            engine.renderOffline(block.data(), std::min(left, blockFrames));
        }
        player.transitionTick();
        QCoreApplication::processEvents();
    }

    Player &player() { return app->player(); }
};
