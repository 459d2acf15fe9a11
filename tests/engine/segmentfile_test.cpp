#include "engine/segmentfile.h"

#include "testenv.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

// Whether another open file description could take the lock right now (flock locks
// belong to the description, so this works inside one process too).
bool lockIsFree(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool free = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    ::close(fd);
    return free;
}

QByteArray pattern(qsizetype size, char seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(seed + i % 251);
    return bytes;
}

class SegmentFileTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    const QString path = dir.filePath(".seg.mp3");
};

TEST_F(SegmentFileTest, BuffersSmallWritesAndKeepsTheOrderAcrossDirectWrites)
{
    auto file = SegmentFile::create(path);
    ASSERT_TRUE(file);

    file->write("abc");
    EXPECT_EQ(QFileInfo(path).size(), 0) << "small writes wait in the buffer";
    EXPECT_TRUE(file->flush());
    EXPECT_EQ(readFile(path), "abc");

    // Filling the buffer to the byte writes it out without a flush.
    const QByteArray fill = pattern(SegmentFile::kBufferBytes - 1, 'a');
    file->write(fill.first(100));
    file->write(fill.sliced(100));
    file->write("!");
    EXPECT_EQ(QFileInfo(path).size(), 3 + SegmentFile::kBufferBytes);

    // A large write goes past the buffer, but only after what is buffered.
    const QByteArray big = pattern(SegmentFile::kBufferBytes + 1000, 'K');
    file->write("xy");
    file->write(big);
    const QByteArray expected = "abc" + fill + "!" + "xy" + big;
    EXPECT_EQ(readFile(path), expected);

    file->write("tail");
    const SegmentLock lock = file->close();
    EXPECT_EQ(readFile(path), expected + "tail");
    EXPECT_EQ(file->size(), expected.size() + 4);
    EXPECT_FALSE(file->hasError());
    EXPECT_FALSE(file->isOpen());
    file->write("after close");
    EXPECT_EQ(readFile(path), expected + "tail");
}

TEST_F(SegmentFileTest, DestroyingAnOpenFileFlushesIt)
{
    {
        auto file = SegmentFile::create(path);
        ASSERT_TRUE(file);
        file->write("pending bytes");
        SegmentFile moved = std::move(*file);
    }
    EXPECT_EQ(readFile(path), "pending bytes");
    EXPECT_TRUE(lockIsFree(path));
}

TEST_F(SegmentFileTest, TheLockLastsFromCreationThroughTheHandedOnSegmentLock)
{
    auto file = SegmentFile::create(path);
    ASSERT_TRUE(file);
    EXPECT_FALSE(lockIsFree(path));
    EXPECT_FALSE(SegmentLock::tryAcquire(path));
    EXPECT_FALSE(SegmentFile::create(path)) << "a second writer must not take a held file";

    std::vector<SegmentLock> pending;
    pending.push_back(file->close());
    pending.reserve(16); // moving the lock around must not drop it
    EXPECT_EQ(pending.front().path(), path);
    EXPECT_FALSE(lockIsFree(path));

    pending.clear();
    EXPECT_TRUE(lockIsFree(path));
    auto lock = SegmentLock::tryAcquire(path);
    ASSERT_TRUE(lock);
    EXPECT_FALSE(lockIsFree(path));
    lock->release();
    EXPECT_TRUE(lockIsFree(path));
}

TEST_F(SegmentFileTest, CreateEmptiesOnlyAFileNobodyHolds)
{
    writeFile(path, "old content");
    {
        auto holder = SegmentLock::tryAcquire(path);
        ASSERT_TRUE(holder);
        EXPECT_FALSE(SegmentFile::create(path));
        EXPECT_EQ(readFile(path), "old content");
    }
    auto file = SegmentFile::create(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(QFileInfo(path).size(), 0);
    EXPECT_FALSE(SegmentFile::create(dir.filePath("missing/folder/.seg.mp3")));
}

TEST_F(SegmentFileTest, AFullDiskIsRememberedNotThrown)
{
    if (!QFileInfo::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    auto file = SegmentFile::create("/dev/full");
    ASSERT_TRUE(file);
    file->write("small");
    EXPECT_FALSE(file->hasError());
    EXPECT_FALSE(file->flush());
    EXPECT_TRUE(file->hasError());
    file->write(pattern(SegmentFile::kBufferBytes * 2, 'z'));
    SegmentLock lock = file->close();
    EXPECT_TRUE(file->hasError());
    EXPECT_TRUE(lock.isValid());
    lock.release();
}

TEST_F(SegmentFileTest, RemoveFileUnlinksWhileLockedAndToleratesAMissingFile)
{
    auto file = SegmentFile::create(path);
    ASSERT_TRUE(file);
    SegmentLock lock = file->close();
    EXPECT_TRUE(lock.removeFile());
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_FALSE(lock.isValid());

    writeFile(path, "x");
    auto second = SegmentLock::tryAcquire(path);
    ASSERT_TRUE(second);
    QFile::remove(path);
    EXPECT_TRUE(second->removeFile());
    EXPECT_FALSE(SegmentLock::tryAcquire(path)) << "a missing file cannot be locked";
}

} // namespace
