#include "platform/atomicfile.h"

#include "testenv.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

TEST(AtomicFile, ReplacesContentCreatesFoldersAndLeavesNoTemporaryFiles)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("deep/er/state.json");
    ASSERT_TRUE(AtomicFile::write(path, "first"));
    ASSERT_TRUE(AtomicFile::write(path, "second, longer"));
    EXPECT_EQ(AtomicFile::read(path), QByteArray("second, longer"));
    EXPECT_EQ(QDir(dir.filePath("deep/er")).entryList(QDir::Files | QDir::Hidden), QStringList{"state.json"});
}

TEST(AtomicFile, ReplacesAFileWhosePermissionsWereBroken)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("stats.json");
    writeFile(path, "old");
    QFile::setPermissions(path, QFileDevice::Permissions());
    ASSERT_TRUE(AtomicFile::write(path, "new"));
    EXPECT_TRUE(QFile::permissions(path) & QFileDevice::ReadOwner);
    EXPECT_EQ(AtomicFile::read(path), QByteArray("new"));
}

TEST(AtomicFile, AFailedWriteKeepsTheOldFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("keep.json");
    writeFile(path, "precious");
    // A folder in the way of the parent path cannot be created: nothing is touched.
    writeFile(dir.filePath("blocker"), "x");
    EXPECT_FALSE(AtomicFile::write(dir.filePath("blocker/child.json"), "data"));
    EXPECT_EQ(AtomicFile::read(path), QByteArray("precious"));
    EXPECT_FALSE(AtomicFile::read(dir.filePath("missing.json")).has_value());
    EXPECT_FALSE(AtomicFile::read(path, 3).has_value()); // over the size limit
}

} // namespace
