#include "engine/segmentrecovery.h"

#include "engine/apppaths.h"
#include "engine/segmentfile.h"
#include "icystream.h"
#include "testenv.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

class SegmentRecoveryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        AppPaths::ensure();
        tmp = AppPaths::tmpDir();
        recovered = AppPaths::radioDir() + "/Recovered";
    }

    // A file in tmp last changed at `changed`.
    QString leftover(const QString &name, const QByteArray &bytes, const QDateTime &changed)
    {
        const QString path = tmp + "/" + name;
        writeFile(path, bytes);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadWrite));
        EXPECT_TRUE(file.setFileTime(changed, QFileDevice::FileModificationTime));
        return path;
    }

    static QStringList paths(const SegmentRecovery::Result &result)
    {
        QStringList out;
        for (const auto &song : result.recovered)
            out << song.filePath;
        return out;
    }

    // Audio as the recorder keeps it: whole MPEG frames, one letter per block.
    static QByteArray frames(int n) { return IcyStream::audioBlock(n) + IcyStream::audioBlock(n); }

    TestHome home;
    QString tmp;
    QString recovered;
    const QDateTime crash{QDate(2024, 3, 9), QTime(23, 5, 7)};
    const QString seg1 = ".0F8FAD5B-D9CB-469F-A165-70867728950E.mp3";
    const QString seg2 = ".7C9E6679-7425-40DE-944B-E07FC1F90AE7.mp3";
    const QString seg3 = ".16FD2706-8BAF-433B-82EB-8C7FADA847DA.aac";
};

TEST_F(SegmentRecoveryTest, SalvagesTheAudioOfUnlockedSegmentsAndRemovesUnlockedWorkFiles)
{
    leftover(seg1, frames(0), crash);
    // A web page in front and garbage behind: only the frames are kept.
    leftover(seg2, "<html>502 Bad Gateway</html>" + frames(1) + QByteArray(100, 'z'), crash); // same second: numbered
    leftover(seg3, IcyStream::adtsFrame(500, 'a') + IcyStream::adtsFrame(500, 'b'), crash.addSecs(60));
    const QString empty = leftover(".A3BB189E-8BF9-4888-9912-ACE4E6543002.mp3", "", crash);
    const QString page = leftover(".B3BB189E-8BF9-4888-9912-ACE4E6543002.mp3", "<html>404</html>", crash);
    const QString work1 = leftover(".out_9A0364B9-2B2E-4B5B-9A3E-8D9C1A0E3F11.mp3", "half written", crash);
    const QString work2 = leftover(".merged_9A0364B9-2B2E-4B5B-9A3E-8D9C1A0E3F11", "merged", crash);
    const QString work3 = leftover(".cover_9A0364B9-2B2E-4B5B-9A3E-8D9C1A0E3F11.jpg", "\xFF\xD8", crash);
    // A song kept while listening that nobody asked to save: audio, but never salvaged.
    const QString listened = leftover(".listen_9A0364B9-2B2E-4B5B-9A3E-8D9C1A0E3F11.mp3", frames(3), crash);
    // Not ours: left as they are.
    const QString other1 = leftover(".hidden-notes.mp3", "user file", crash);
    const QString other2 = leftover(".0F8FAD5B.mp3", "short name", crash);

    const SegmentRecovery::Result result = SegmentRecovery::recoverOrphans(0);
    const QString stamp = recovered + "/Recovered 2024-03-09 23-05-07";
    ASSERT_EQ(paths(result), (QStringList{stamp + ".mp3", recovered + "/Recovered 2024-03-09 23-06-07.aac", stamp + " (2).mp3"}));
    EXPECT_EQ(readFile(result.recovered[0].filePath), frames(0));
    EXPECT_EQ(readFile(result.recovered[1].filePath), IcyStream::adtsFrame(500, 'a') + IcyStream::adtsFrame(500, 'b'));
    EXPECT_EQ(readFile(result.recovered[2].filePath), frames(1));
    EXPECT_EQ(result.recovered[0].title, "Recovered 2024-03-09 23-05-07");
    EXPECT_EQ(result.recovered[2].title, "Recovered 2024-03-09 23-05-07 (2)");
    EXPECT_GT(result.recovered[0].durationSec, 0);
    const Track track = SegmentRecovery::toTrack(result.recovered[0]);
    EXPECT_EQ(track.title, "Recovered 2024-03-09 23-05-07");
    EXPECT_EQ(track.filePath, result.recovered[0].filePath);
    EXPECT_EQ(track.source, "radio");
    ASSERT_EQ(result.dropped.size(), 1);
    EXPECT_EQ(result.dropped[0].filePath, page);
    EXPECT_EQ(result.dropped[0].reason, "no audio frames");
    for (const QString &gone : {empty, page, work1, work2, work3, listened})
        EXPECT_FALSE(QFileInfo::exists(gone)) << gone.toStdString();
    EXPECT_TRUE(QFileInfo::exists(other1));
    EXPECT_TRUE(QFileInfo::exists(other2));
    EXPECT_EQ(QDir(tmp).entryList(QDir::Files | QDir::Hidden), (QStringList{".0F8FAD5B.mp3", ".hidden-notes.mp3"}));

    // A later crash at the same second does not overwrite earlier recoveries.
    leftover(seg1, frames(2), crash);
    EXPECT_EQ(paths(SegmentRecovery::recoverOrphans(0)), QStringList{stamp + " (3).mp3"});
}

TEST_F(SegmentRecoveryTest, ParkedSongsAreLeftWhileTheirProcessLivesAndSalvagedAfter)
{
    std::vector<SegmentLock> song;
    for (const QString &name : {seg1, seg2}) {
        auto file = SegmentFile::create(tmp + "/" + name);
        ASSERT_TRUE(file);
        file->write(frames(name == seg1 ? 0 : 1));
        song.push_back(file->close());
    }
    const QStringList parked = SegmentRecovery::park(std::move(song));
    ASSERT_EQ(parked.size(), 2);
    for (const QString &path : parked) {
        EXPECT_TRUE(path.contains("/.parked-")) << path.toStdString();
        EXPECT_TRUE(SegmentLock::tryAcquire(path)) << "parked segments hold no lock";
    }
    // Parked by this process, which lives on: not recovered (nor by another process).
    EXPECT_TRUE(SegmentRecovery::recoverOrphans(0).recovered.isEmpty());
    for (const QString &path : parked)
        EXPECT_TRUE(QFileInfo::exists(path));

    // The parking folder of a process that has ended: nobody holds it.
    const QString dead = tmp + "/.parked-1D0C4A3E-3F0B-4F55-9B7E-2A1B3C4D5E6F";
    QDir().mkpath(dead);
    writeFile(dead + "/" + seg3.chopped(4) + ".mp3", frames(2));
    const SegmentRecovery::Result result = SegmentRecovery::recoverOrphans(0);
    ASSERT_EQ(result.recovered.size(), 1);
    EXPECT_EQ(readFile(result.recovered[0].filePath), frames(2));
    EXPECT_FALSE(QFileInfo::exists(dead));
}

TEST_F(SegmentRecoveryTest, LeavesLockedAndFreshFilesAlone)
{
    auto recording = SegmentFile::create(tmp + "/" + seg1);
    ASSERT_TRUE(recording);
    recording->write(frames(0));
    recording->flush();
    const QString work = leftover(".out_9A0364B9-2B2E-4B5B-9A3E-8D9C1A0E3F11.mp3", "saving", crash);
    auto saving = SegmentLock::tryAcquire(work);
    ASSERT_TRUE(saving);
    leftover(seg2, frames(1), crash);
    auto waiting = SegmentLock::tryAcquire(tmp + "/" + seg2);
    ASSERT_TRUE(waiting);
    // Unlocked but written a moment ago: a writer may be about to lock it.
    const QString fresh = leftover(seg3, "just opened", QDateTime::currentDateTime());

    EXPECT_EQ(paths(SegmentRecovery::recoverOrphans(10)), QStringList());
    EXPECT_EQ(QDir(tmp).entryList(QDir::Files | QDir::Hidden).size(), 4);
    EXPECT_FALSE(QFileInfo::exists(recovered));

    waiting->release();
    saving->release();
    EXPECT_EQ(paths(SegmentRecovery::recoverOrphans(10)), QStringList{recovered + "/Recovered 2024-03-09 23-05-07.mp3"});
    EXPECT_FALSE(QFileInfo::exists(work));
    EXPECT_TRUE(QFileInfo::exists(fresh));
    EXPECT_TRUE(QFileInfo::exists(tmp + "/" + seg1));
}

} // namespace
