#include "app/libraryfiltermodel.h"
#include "app/librarymodel.h"
#include "library/librarystore.h"

#include "testenv.h"

#include <QAbstractItemModelTester>
#include <QRandomGenerator>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

// A real library file under a model and the proxy, watched by Qt's model tester so every
// announced insert, move, removal and reset is checked against what the proxy then shows.
class LibraryFilterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        LibraryOpenResult opened = LibraryStore::open(home.file(QStringLiteral("library.sqlite")));
        ASSERT_TRUE(opened) << opened.message.toStdString();
        store = std::move(opened.store);
        model = std::make_unique<LibraryModel>(store.get());
        model->load();
        proxy = std::make_unique<LibraryFilterModel>();
        proxy->setSourceModel(model.get());
        tester = std::make_unique<QAbstractItemModelTester>(proxy.get(),
                                                            QAbstractItemModelTester::FailureReportingMode::Fatal);
    }

    static Track track(const QString &title, const QString &artist, const QString &album, double duration,
                       int day, int plays, const QString &station)
    {
        return Track(title, artist, album, duration, QDateTime(QDate(2026, 1, 1).addDays(day), QTime(8, 0), Qt::UTC),
                     QString(), plays % 3 == 1, plays, QStringLiteral("radio"), station, std::nullopt);
    }

    // The proxy's rows as track ids.
    QList<qint64> shownIds() const
    {
        QList<qint64> ids;
        for (int row = 0; row < proxy->rowCount(); ++row)
            ids << proxy->index(row, 0).data(LibraryModel::kTrackIdRole).toLongLong();
        return ids;
    }

    // What the table should show, worked out the slow, obvious way from the store.
    QList<qint64> expectedIds(const QString &text, int column, Qt::SortOrder order) const
    {
        QList<Track> tracks = store->allTracks();
        const QString needle = text.trimmed();
        tracks.removeIf([&](const Track &t) {
            for (const QString &field : {t.title, t.artist, t.album, t.station.value_or(QString())}) {
                if (field.contains(needle, Qt::CaseInsensitive))
                    return false;
            }
            return true;
        });
        auto compare = [column](const Track &a, const Track &b) {
            switch (column) {
            case LibraryModel::TitleColumn: return QString::compare(a.title, b.title, Qt::CaseInsensitive);
            case LibraryModel::ArtistColumn: return QString::compare(a.artist, b.artist, Qt::CaseInsensitive);
            case LibraryModel::AlbumColumn: return QString::compare(a.album, b.album, Qt::CaseInsensitive);
            case LibraryModel::StationColumn:
                return QString::compare(*a.station, *b.station, Qt::CaseInsensitive);
            case LibraryModel::DurationColumn: return a.duration < b.duration ? -1 : int(b.duration < a.duration);
            case LibraryModel::DateAddedColumn: return a.dateAdded < b.dateAdded ? -1 : int(b.dateAdded < a.dateAdded);
            case LibraryModel::PlayCountColumn: return a.playCount < b.playCount ? -1 : int(b.playCount < a.playCount);
            case LibraryModel::FavoriteColumn: return int(a.isFavorite) - int(b.isFavorite);
            default: return 0;
            }
        };
        // Equal values keep the store's order, whichever way the column is sorted.
        std::stable_sort(tracks.begin(), tracks.end(), [&](const Track &a, const Track &b) {
            const int c = compare(a, b);
            return order == Qt::AscendingOrder ? c < 0 : c > 0;
        });
        QList<qint64> ids;
        for (const Track &t : tracks)
            ids << t.id;
        return ids;
    }

    QList<qint64> expectedIds() const { return expectedIds(filterText, proxy->sortColumn(), proxy->sortOrder()); }

    void setFilter(const QString &text)
    {
        filterText = text;
        proxy->setFilterText(text);
    }

    TestHome home;
    std::unique_ptr<LibraryStore> store;
    std::unique_ptr<LibraryModel> model;
    std::unique_ptr<LibraryFilterModel> proxy;
    std::unique_ptr<QAbstractItemModelTester> tester;
    QString filterText;
};

TEST_F(LibraryFilterTest, MapsBothWaysAndHidesFilteredRows)
{
    const QList<qint64> ids = store->insertTracks({track("Blue Train", "John Coltrane", "Blue", 643, 1, 0, "Jazz"),
                                                   track("Beat It", "Michael Jackson", "Thriller", 258, 3, 2, "Pop"),
                                                   track("Alright", "Kendrick Lamar", "Butterfly", 219, 2, 1, "Pop")});
    proxy->sort(LibraryModel::TitleColumn, Qt::AscendingOrder);
    setFilter(QStringLiteral("  POP "));
    ASSERT_EQ(shownIds(), QList<qint64>({ids[2], ids[1]}));
    for (int row = 0; row < proxy->rowCount(); ++row) {
        for (int column = 0; column < proxy->columnCount(); ++column) {
            const QModelIndex index = proxy->index(row, column);
            const QModelIndex source = proxy->mapToSource(index);
            EXPECT_EQ(source.column(), column);
            EXPECT_EQ(source.data(), index.data());
            EXPECT_EQ(proxy->mapFromSource(source), index);
        }
    }
    EXPECT_EQ(proxy->mapToSource(proxy->index(0, 0)).row(), model->rowOf(ids[2]));
    EXPECT_FALSE(proxy->mapFromSource(model->index(model->rowOf(ids[0]), 0)).isValid());
    EXPECT_FALSE(proxy->index(2, 0).isValid());
    EXPECT_FALSE(proxy->mapToSource(QModelIndex()).isValid());
}

TEST_F(LibraryFilterTest, SortsEveryColumnBothWaysKeepingTiesInStoreOrder)
{
    // Equal artists, durations, stations, days and counts in every column, upper and lower case mixed.
    QList<Track> tracks;
    const char *const artists[] = {"abba", "ABBA", "Zappa", "Ärzte", "beatles"};
    for (int i = 0; i < 15; ++i) {
        tracks << track(QStringLiteral("Song %1").arg(i % 4), QString::fromUtf8(artists[i % 5]),
                        i % 2 ? QStringLiteral("Live") : QStringLiteral("live"), 100 + i % 3 * 10, i % 4, i % 2,
                        i % 3 ? QStringLiteral("FM4") : QStringLiteral("fm4"));
    }
    ASSERT_EQ(store->insertTracks(tracks).size(), 15);
    for (int column = 0; column < LibraryModel::ColumnCount; ++column) {
        for (Qt::SortOrder order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
            proxy->sort(column, order);
            EXPECT_EQ(proxy->sortColumn(), column);
            EXPECT_EQ(shownIds(), expectedIds()) << "column " << column << " order " << order;
        }
    }
    // A filtered table sorts only its shown rows, and keeps showing the same ones.
    setFilter(QStringLiteral("abba"));
    proxy->sort(LibraryModel::DurationColumn, Qt::DescendingOrder);
    EXPECT_EQ(shownIds().size(), 6);
    EXPECT_EQ(shownIds(), expectedIds());
    // No column: the store's order.
    proxy->sort(-1, Qt::AscendingOrder);
    QList<qint64> inStoreOrder = shownIds();
    std::sort(inStoreOrder.begin(), inStoreOrder.end());
    EXPECT_EQ(shownIds(), inStoreOrder);
}

TEST_F(LibraryFilterTest, NarrowsWidensAndMatchesOnlyWithinOneField)
{
    ASSERT_EQ(store->insertTracks({track("Nummer 1", "Künstlerin", "ab", 1, 1, 0, "cd"),
                                   track("Nummer 12", "Band", "Album", 1, 2, 0, "KÜNSTLER FM"),
                                   track("Nummer 2", "Solo", "Zwölf", 1, 3, 0, "Radio"),
                                   track("Anderes", "Nummer", "Eins", 1, 4, 0, "Radio")})
                  .size(),
              4);
    proxy->sort(LibraryModel::DateAddedColumn, Qt::DescendingOrder);
    const QStringList steps = {"n", "nu", "nummer", "nummer ", "nummer 1", "nummer 12", "nummer 1", "nummer",
                               "", "künstler", "KÜNST", "zwö", "ZWÖLF", "xyz", "radio", ""};
    for (const QString &step : steps) {
        setFilter(step);
        EXPECT_EQ(shownIds(), expectedIds()) << step.toStdString();
    }
    // The end of one field and the start of the next are not one text.
    setFilter(QStringLiteral("bcd"));
    EXPECT_EQ(proxy->rowCount(), 0);
    setFilter(QStringLiteral("ab") + QChar(0x1F) + QStringLiteral("cd"));
    EXPECT_EQ(proxy->rowCount(), 0);
    setFilter(QStringLiteral("cd"));
    EXPECT_EQ(proxy->rowCount(), 1);
}

TEST_F(LibraryFilterTest, SingleStoreChangesLandInPlaceAsSingleRowSignals)
{
    const QList<qint64> ids = store->insertTracks({track("Alpha", "A", "", 100, 1, 0, "Pop"),
                                                   track("Beta", "B", "", 300, 2, 0, "Pop"),
                                                   track("Gamma", "C", "", 200, 3, 0, "Jazz"),
                                                   track("Delta", "D", "", 400, 4, 0, "Pop")});
    proxy->sort(LibraryModel::DurationColumn, Qt::AscendingOrder);
    setFilter(QStringLiteral("pop"));
    ASSERT_EQ(shownIds(), QList<qint64>({ids[0], ids[1], ids[3]}));
    QSignalSpy resets(proxy.get(), &QAbstractItemModel::modelReset);
    QSignalSpy inserted(proxy.get(), &QAbstractItemModel::rowsInserted);
    QSignalSpy moved(proxy.get(), &QAbstractItemModel::rowsMoved);
    QSignalSpy removed(proxy.get(), &QAbstractItemModel::rowsRemoved);
    const QPersistentModelIndex beta = proxy->index(1, 0);

    // A matching new track between the shown ones.
    const qint64 epsilon = store->insertTracks({track("Epsilon", "E", "", 350, 5, 0, "Pop")}).value(0);
    ASSERT_EQ(inserted.count(), 1);
    EXPECT_EQ(inserted[0][1].toInt(), 2);
    EXPECT_EQ(shownIds(), QList<qint64>({ids[0], ids[1], epsilon, ids[3]}));
    // One that does not match: no row.
    ASSERT_EQ(store->insertTracks({track("Zeta", "Z", "", 10, 6, 0, "Jazz")}).size(), 1);
    EXPECT_EQ(inserted.count(), 1);

    // Longer now: moves below Epsilon and Delta, the persistent index with it.
    Track edited = *store->track(ids[1]);
    edited.duration = 500;
    ASSERT_TRUE(store->save(edited));
    EXPECT_EQ(moved.count(), 1);
    EXPECT_EQ(shownIds(), QList<qint64>({ids[0], epsilon, ids[3], ids[1]}));
    EXPECT_EQ(beta.row(), 3);
    // Changed without moving: stays, shows the new value.
    edited.title = QStringLiteral("Beta Live");
    ASSERT_TRUE(store->save(edited));
    EXPECT_EQ(moved.count(), 1);
    EXPECT_EQ(proxy->index(3, LibraryModel::TitleColumn).data().toString(), QStringLiteral("Beta Live"));
    // No longer matching: removed. Matching now: inserted at its place.
    edited.station = QStringLiteral("Jazz");
    ASSERT_TRUE(store->save(edited));
    EXPECT_EQ(removed.count(), 1);
    EXPECT_FALSE(beta.isValid());
    Track gamma = *store->track(ids[2]);
    gamma.station = QStringLiteral("Pop");
    ASSERT_TRUE(store->save(gamma));
    EXPECT_EQ(shownIds(), QList<qint64>({ids[0], ids[2], epsilon, ids[3]}));

    // A delete in the middle of the store shifts the source rows behind it.
    const QPersistentModelIndex delta = proxy->index(3, 0);
    ASSERT_TRUE(store->remove(ids[0]));
    EXPECT_EQ(removed.count(), 2);
    EXPECT_EQ(shownIds(), QList<qint64>({ids[2], epsilon, ids[3]}));
    EXPECT_EQ(delta.row(), 2);
    EXPECT_EQ(delta.data(LibraryModel::kTrackIdRole).toLongLong(), ids[3]);
    EXPECT_EQ(resets.count(), 0);
    EXPECT_EQ(shownIds(), expectedIds());
}

// Many edits, filters and sorts in a fixed pseudo-random mix, each checked against the
// obvious computation.
TEST_F(LibraryFilterTest, StaysRightThroughAMixOfEditsFiltersAndSorts)
{
    QRandomGenerator random(4711);
    const QStringList words = {"rot", "Rose", "ROT", "blau", "Blüte", "grün", "Grund", "see"};
    auto randomTrack = [&] {
        auto word = [&] { return words[random.bounded(int(words.size()))]; };
        return track(word() + QLatin1Char(' ') + word(), word(), word(), random.bounded(5) * 60, random.bounded(5),
                     random.bounded(3), word());
    };
    QList<Track> tracks;
    for (int i = 0; i < 40; ++i)
        tracks << randomTrack();
    ASSERT_EQ(store->insertTracks(tracks).size(), 40);
    const QStringList filters = {"", "r", "ro", "rot", "ro", "b", "blü", "BLÜTE", "und", "", "e", "se"};
    for (int step = 0; step < 120; ++step) {
        const QList<Track> all = store->allTracks();
        switch (random.bounded(5)) {
        case 0: ASSERT_EQ(store->insertTracks({randomTrack(), randomTrack()}).size(), 2); break;
        case 1: {
            Track changed = randomTrack();
            changed.id = all[random.bounded(int(all.size()))].id;
            ASSERT_TRUE(store->save(changed));
            break;
        }
        case 2: ASSERT_TRUE(store->remove(all[random.bounded(int(all.size()))].id)); break;
        case 3: setFilter(filters[random.bounded(int(filters.size()))]); break;
        default:
            proxy->sort(random.bounded(LibraryModel::ColumnCount),
                        random.bounded(2) ? Qt::AscendingOrder : Qt::DescendingOrder);
        }
        ASSERT_EQ(shownIds(), expectedIds()) << "step " << step;
    }
}

TEST_F(LibraryFilterTest, ABigImportAndAReloadRebuildEverything)
{
    proxy->sort(LibraryModel::TitleColumn, Qt::DescendingOrder);
    setFilter(QStringLiteral("7"));
    QList<Track> tracks;
    for (int i = 0; i < 300; ++i)
        tracks << track(QStringLiteral("Track %1").arg(i), QStringLiteral("Artist"), QString(), i, i % 30, 0, "FM4");
    ASSERT_EQ(store->insertTracks(tracks).size(), 300);
    EXPECT_EQ(shownIds(), expectedIds());
    model->load();
    EXPECT_EQ(shownIds(), expectedIds());
    EXPECT_EQ(proxy->rowCount(), 57); // 7, 17, ..., 70-79, 107, ..., 170-179, 207, ..., 270-279
}

} // namespace
