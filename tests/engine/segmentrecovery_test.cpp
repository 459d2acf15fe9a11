#include "engine/segmentrecovery.h"

#include "engine/apppaths.h"
#include "engine/segmentfile.h"
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

    TestHome home;
    QString tmp;
    QString recovered;
    const QDateTime crash{QDate(2024, 3, 9), QTime(23, 5, 7)};
    const QString seg1 = ".0F8FAD5B-D9CB-469F-A165-70867728950E.mp3";
    const QString seg2 = ".7C9E6679-7425-40DE-944B-E07FC1F90AE7.mp3";
    const QString seg3 = ".16FD2706-8BAF-433B-82EB-8C7FADA847DA.aac";
};

TEST_F(SegmentRecoveryTest, SalvagesUnlockedSegmentsAndRemovesUnlockedWorkFiles)
{
    leftover(seg1, "first", crash);
    leftover(seg2, "second", crash); // same second: gets a number
    leftover(seg3, "aac bytes", crash.addSecs(60));
    const QString empty = leftover(".A3BB189E-8BF9-4888-9912-ACE4E6543002.mp3", "", crash);
    const QString work1 = leftover(".out_9A0364B9-2B2E-4B5B-9A3E-8D9C1A0E3F11.mp3", "half written", crash);
    const QString work2 = leftover(".merged_9A0364B9-2B2E-4B5B-9A3E-8D9C1A0E3F11", "merged", crash);
    const QString work3 = leftover(".cover_9A0364B9-2B2E-4B5B-9A3E-8D9C1A0E3F11.jpg", "\xFF\xD8", crash);
    // Not ours: left as they are.
    const QString other1 = leftover(".hidden-notes.mp3", "user file", crash);
    const QString other2 = leftover(".0F8FAD5B.mp3", "short name", crash);

    const QStringList result = SegmentRecovery::recoverOrphans(0);
    const QString stamp = recovered + "/Recovered 2024-03-09 23-05-07";
    EXPECT_EQ(result, (QStringList{stamp + ".mp3", recovered + "/Recovered 2024-03-09 23-06-07.aac", stamp + " (2).mp3"}));
    EXPECT_EQ(readFile(result[0]), "first");
    EXPECT_EQ(readFile(result[1]), "aac bytes");
    EXPECT_EQ(readFile(result[2]), "second");
    for (const QString &gone : {empty, work1, work2, work3})
        EXPECT_FALSE(QFileInfo::exists(gone)) << gone.toStdString();
    EXPECT_TRUE(QFileInfo::exists(other1));
    EXPECT_TRUE(QFileInfo::exists(other2));

    // A later crash at the same second does not overwrite earlier recoveries.
    leftover(seg1, "third", crash);
    EXPECT_EQ(SegmentRecovery::recoverOrphans(0), QStringList{stamp + " (3).mp3"});
}

TEST_F(SegmentRecoveryTest, LeavesLockedAndFreshFilesAlone)
{
    auto recording = SegmentFile::create(tmp + "/" + seg1);
    ASSERT_TRUE(recording);
    recording->write("still recording");
    recording->flush();
    const QString work = leftover(".out_9A0364B9-2B2E-4B5B-9A3E-8D9C1A0E3F11.mp3", "saving", crash);
    auto saving = SegmentLock::tryAcquire(work);
    ASSERT_TRUE(saving);
    leftover(seg2, "waiting for its save", crash);
    auto waiting = SegmentLock::tryAcquire(tmp + "/" + seg2);
    ASSERT_TRUE(waiting);
    // Unlocked but written a moment ago: a writer may be about to lock it.
    const QString fresh = leftover(seg3, "just opened", QDateTime::currentDateTime());

    EXPECT_EQ(SegmentRecovery::recoverOrphans(10), QStringList());
    EXPECT_EQ(QDir(tmp).entryList(QDir::Files | QDir::Hidden).size(), 4);
    EXPECT_FALSE(QFileInfo::exists(recovered));

    waiting->release();
    saving->release();
    const QStringList result = SegmentRecovery::recoverOrphans(10);
    EXPECT_EQ(result, QStringList{recovered + "/Recovered 2024-03-09 23-05-07.mp3"});
    EXPECT_FALSE(QFileInfo::exists(work));
    EXPECT_TRUE(QFileInfo::exists(fresh));
    EXPECT_TRUE(QFileInfo::exists(tmp + "/" + seg1));
}

} // namespace
