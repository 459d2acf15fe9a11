#include "app/playlistorder.h"

#include <gtest/gtest.h>

namespace {

const QList<qint64> kOrder{10, 11, 12, 13, 14, 15};

TEST(PlaylistOrder, MoveRowsPutsTheBlockInFrontOfTheDestinationInItsOldOrder)
{
    // Downwards: the destination counts in the old numbering, so "in front of row 5"
    // means in front of 15, wherever the taken-out rows were.
    EXPECT_EQ(PlaylistOrder::moveRows(kOrder, {0, 2}, 5), QList<qint64>({11, 13, 14, 10, 12, 15}));
    EXPECT_EQ(PlaylistOrder::moveRows(kOrder, {4, 1}, 0), QList<qint64>({11, 14, 10, 12, 13, 15}));
    EXPECT_EQ(PlaylistOrder::moveRows(kOrder, {0}, 6), QList<qint64>({11, 12, 13, 14, 15, 10}));
    // Dropped on itself or right behind itself: nothing changes.
    EXPECT_EQ(PlaylistOrder::moveRows(kOrder, {2, 3}, 3), kOrder);
    EXPECT_EQ(PlaylistOrder::moveRows(kOrder, {2, 3}, 4), kOrder);
    // Rows outside the list and repeats are ignored; a destination past the end appends.
    EXPECT_EQ(PlaylistOrder::moveRows(kOrder, {1, 1, 9, -1}, 99), QList<qint64>({10, 12, 13, 14, 15, 11}));
    EXPECT_EQ(PlaylistOrder::moveRows({}, {0}, 0), QList<qint64>());
}

TEST(PlaylistOrder, ShiftRowsMovesBlocksOnePlaceAndStopsAtTheEdges)
{
    EXPECT_EQ(PlaylistOrder::shiftRows(kOrder, {2}, -1), QList<qint64>({10, 12, 11, 13, 14, 15}));
    EXPECT_EQ(PlaylistOrder::shiftRows(kOrder, {2}, 1), QList<qint64>({10, 11, 13, 12, 14, 15}));
    // A block moves as one, keeping its inner order.
    EXPECT_EQ(PlaylistOrder::shiftRows(kOrder, {2, 3}, -1), QList<qint64>({10, 12, 13, 11, 14, 15}));
    EXPECT_EQ(PlaylistOrder::shiftRows(kOrder, {2, 3}, 1), QList<qint64>({10, 11, 14, 12, 13, 15}));
    // At the top a block stays; a separate row further down still moves.
    EXPECT_EQ(PlaylistOrder::shiftRows(kOrder, {0, 1, 4}, -1), QList<qint64>({10, 11, 12, 14, 13, 15}));
    EXPECT_EQ(PlaylistOrder::shiftRows(kOrder, {1, 4, 5}, 1), QList<qint64>({10, 12, 11, 13, 14, 15}));
    EXPECT_EQ(PlaylistOrder::shiftRows(kOrder, {0}, -1), kOrder);
    EXPECT_EQ(PlaylistOrder::shiftRows(kOrder, {3}, 2), kOrder);
}

TEST(PlaylistOrder, InsertAtClampsThePosition)
{
    EXPECT_EQ(PlaylistOrder::insertAt({1, 2}, {7, 8}, 1), QList<qint64>({1, 7, 8, 2}));
    EXPECT_EQ(PlaylistOrder::insertAt({1, 2}, {7}, -3), QList<qint64>({7, 1, 2}));
    EXPECT_EQ(PlaylistOrder::insertAt({1, 2}, {7}, 10), QList<qint64>({1, 2, 7}));
}

} // namespace
