#include "programme.h"

#include <QSet>

#include <gtest/gtest.h>

namespace {

TEST(ProgrammeTest, SongsOfTwentyToFourMinutesWithJinglesAndATonePerItem)
{
    const QList<BroadcastSong> items = Programme::make(900);
    double totalSec = 0;
    QSet<QString> songTitles;
    int jingles = 0;
    for (int i = 0; i < items.size(); ++i) {
        const BroadcastSong &item = items[i];
        totalSec += item.durationSec;
        EXPECT_GE(item.toneHz, Programme::kFirstToneHz);
        EXPECT_LE(item.toneHz, Programme::kHighestToneHz);
        if (i > 0) {
            EXPECT_GE(item.toneHz - items[i - 1].toneHz, Programme::kToneStepHz - 1e-9) << "tones too close";
        }
        if (Programme::isJingle(item.title)) {
            ++jingles;
            EXPECT_GT(i, 0);
            EXPECT_FALSE(Programme::isJingle(items[i - 1].title)) << "two jingles in a row";
            continue;
        }
        EXPECT_GE(item.durationSec, 20);
        EXPECT_LE(item.durationSec, 240);
        EXPECT_FALSE(songTitles.contains(item.title)) << item.title.toStdString();
        songTitles.insert(item.title);
    }
    EXPECT_GE(totalSec, 900);
    EXPECT_LT(totalSec - items.last().durationSec, 900) << "no more items than needed";
    EXPECT_GE(jingles, 4);
    EXPECT_TRUE(Programme::isJingle(QStringLiteral("Werbung")));
    EXPECT_FALSE(Programme::isJingle(QStringLiteral("Anna Berg - Werbung")));

    EXPECT_FALSE(Programme::make(Programme::maxSec()).isEmpty());
    EXPECT_TRUE(Programme::make(Programme::maxSec() + 1).isEmpty());
}

} // namespace
