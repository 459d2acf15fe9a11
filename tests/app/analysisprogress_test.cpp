// The window's foot while the library is analysed in the background.
#include "app/mainwindow.h"
#include "playback/analysisqueue.h"
#include "playback/crossfadeplanner.h"

#include "appfixture.h"

#include <QLabel>

class AnalysisProgressTest : public AppFixture { };

TEST_F(AnalysisProgressTest, TheSidebarFootCountsNewSongsUntilTheyAreAnalysed)
{
    QString error;
    QStringList paths;
    for (const char *name : { "one.wav", "two.wav" }) {
        paths << home.file(QString::fromLatin1(name));
        ASSERT_TRUE(runProgram(QStringLiteral("/usr/bin/ffmpeg"),
            { "-v", "error", "-y", "-f", "lavfi", "-i", "sine=f=440:d=7", "-ac", "2", paths.back() }, &error))
            << error.toStdString();
    }
    MainWindow window(*app, MainWindowOptions { 1800, false, [] { return false; } });
    auto *progress = window.findChild<QLabel *>(QStringLiteral("analysisProgress"));
    ASSERT_TRUE(progress);
    ASSERT_TRUE(app->analysisQueue());
    EXPECT_TRUE(progress->isHidden());

    QList<Track> tracks;
    for (const QString &path : paths)
        tracks << Track(path, {}, {}, 7, QDateTime::currentDateTime(), {}, false, 0, "radio", {}, path);
    ASSERT_EQ(app->library()->insertTracks(tracks).size(), 2);
    // Results come back through the event loop, which has not run yet.
    EXPECT_FALSE(progress->isHidden());
    EXPECT_EQ(progress->text(), "Analysing library: 0 / 2");

    ASSERT_TRUE(waitUntil([&] { return progress->isHidden(); }, 15000));
    EXPECT_TRUE(app->library()->pathsWithoutAnalysis(QString::fromLatin1(CrossfadePlanner::kAnalysisKind)).isEmpty());
}
