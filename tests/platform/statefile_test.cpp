#include "platform/filelock.h"
#include "platform/statefile.h"

#include "smallfs.h"
#include "testenv.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// A decoder of a toy format: lines of digits; "#" lines are bad entries, "!" makes the
// whole file unreadable. The transaction appends `line` when given.
StateFile::Transaction appending(std::optional<QByteArray> line, QByteArrayList *seen = nullptr)
{
    return [line, seen](const QByteArray *bytes) {
        StateFile::Access access;
        QByteArrayList good;
        if (bytes) {
            if (bytes->contains('!'))
                access.damage = StateFile::Damage::Whole;
            for (const QByteArray &entry : bytes->split('\n')) {
                if (entry.startsWith('#'))
                    access.damage = std::max(access.damage, StateFile::Damage::Partly);
                else if (!entry.isEmpty() && access.damage != StateFile::Damage::Whole)
                    good << entry;
            }
        }
        if (seen)
            *seen = good;
        if (line)
            good << *line;
        if (line || access.damage == StateFile::Damage::Partly)
            access.write = good.join('\n');
        return access;
    };
}

} // namespace

TEST(StateFile, DamagedContentIsSetAsideUnderTheNextFreeNumberNeverOverAnEarlierCopy)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("favorites.json");
    const StateFile file(path);
    EXPECT_EQ(StateFile::asideName(path, 1), dir.filePath("favorites.corrupt.json"));
    EXPECT_EQ(StateFile::asideName(dir.filePath("conf"), 3), dir.filePath("conf.corrupt-3"));

    writeFile(path, "1\n!first damage");
    StateResult result = file.access(appending("2"));
    ASSERT_TRUE(result.ok) << result.error.toStdString();
    EXPECT_TRUE(result.notice.contains(dir.filePath("favorites.corrupt.json"))) << result.notice.toStdString();
    EXPECT_EQ(readFile(path), "2");

    writeFile(path, "!second damage");
    result = file.access(appending(std::nullopt));
    ASSERT_TRUE(result.ok);
    EXPECT_FALSE(QFile::exists(path)) << "a whole loss is moved away, nothing is written in its place";
    EXPECT_EQ(readFile(dir.filePath("favorites.corrupt.json")), "1\n!first damage");
    EXPECT_EQ(readFile(dir.filePath("favorites.corrupt-2.json")), "!second damage");

    // Partly damaged: the good entries are written back, the file as it was is kept.
    writeFile(path, "1\n#bad\n3");
    QByteArrayList seen;
    result = file.access(appending(std::nullopt, &seen));
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(seen, (QByteArrayList { "1", "3" }));
    EXPECT_EQ(readFile(path), "1\n3");
    EXPECT_EQ(readFile(dir.filePath("favorites.corrupt-3.json")), "1\n#bad\n3");
    // Once set aside it is not reported again.
    result = file.access(appending(std::nullopt));
    EXPECT_TRUE(result.ok && result.notice.isEmpty());
}

TEST(StateFile, AFolderInTheFilesPlaceIsSetAsideAndAFailedWriteNamesTheFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("state.json");
    ASSERT_TRUE(QDir().mkpath(path + "/inside"));
    StateResult result = StateFile(path).access(appending("1"));
    ASSERT_TRUE(result.ok) << result.error.toStdString();
    EXPECT_TRUE(QFile::exists(dir.filePath("state.corrupt.json/inside")));
    EXPECT_EQ(readFile(path), "1");

    // A file where the folder belongs: nothing can be written, and it is said.
    writeFile(dir.filePath("blocker"), "x");
    result = StateFile(dir.filePath("blocker/state.json")).access(appending("1"));
    EXPECT_FALSE(result.ok);
    EXPECT_TRUE(result.error.contains(dir.filePath("blocker/state.json"))) << result.error.toStdString();
}

TEST(StateFile, ReadOnlyAndFullFoldersFailTheWriteAndKeepTheOldContent)
{
    QTemporaryDir dir;
    SmallFileSystem small(dir.filePath("data"), 64 * 1024);
    if (!small.mounted())
        GTEST_SKIP() << SmallFileSystem::reason();
    const QString path = dir.filePath("data/state.json");
    ASSERT_TRUE(StateFile(path).access(appending("1")).ok);

    small.fill();
    StateResult full = StateFile(path).access(appending(QByteArray(8192, '2')));
    EXPECT_FALSE(full.ok);
    EXPECT_TRUE(full.error.contains(path)) << full.error.toStdString();
    EXPECT_EQ(readFile(path), "1");

    ASSERT_TRUE(small.makeReadOnly());
    StateResult readOnly = StateFile(path).access(appending("3"));
    EXPECT_FALSE(readOnly.ok);
    EXPECT_TRUE(readOnly.error.contains("Read-only")) << readOnly.error.toStdString();
    EXPECT_EQ(readFile(path), "1");
}

TEST(FileLock, ExcludesOtherHoldersAndIsFreeAgainWhenLetGo)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(".x.lock");
    FileLock first(path);
    FileLock second(path);
    ASSERT_EQ(first.lock(100), FileLock::Result::Locked);
    EXPECT_EQ(second.tryLock(), FileLock::Result::Busy);
    EXPECT_EQ(second.lock(30), FileLock::Result::Busy);
    first.unlock();
    EXPECT_EQ(second.tryLock(), FileLock::Result::Locked);
    EXPECT_TRUE(QFile::exists(path));
}
