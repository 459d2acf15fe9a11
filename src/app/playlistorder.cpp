#include "app/playlistorder.h"

#include <algorithm>

namespace {

// Sorted, unique, inside 0 .. size - 1.
QList<int> cleanRows(QList<int> rows, qsizetype size)
{
    rows.removeIf([size](int row) { return row < 0 || row >= size; });
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    return rows;
}

} // namespace

namespace PlaylistOrder {

QList<qint64> moveRows(const QList<qint64> &order, QList<int> rows, int destination)
{
    rows = cleanRows(std::move(rows), order.size());
    destination = std::clamp(destination, 0, int(order.size()));
    QList<qint64> moved;
    QList<qint64> rest;
    int restBefore = 0; // entries that stay and stood in front of the destination
    for (int row = 0; row < order.size(); ++row) {
        if (std::binary_search(rows.cbegin(), rows.cend(), row)) {
            moved << order[row];
        } else {
            rest << order[row];
            if (row < destination)
                ++restBefore;
        }
    }
    return insertAt(rest, moved, restBefore);
}

QList<qint64> shiftRows(const QList<qint64> &order, QList<int> rows, int delta)
{
    rows = cleanRows(std::move(rows), order.size());
    if (delta != -1 && delta != 1)
        return order;
    QList<qint64> result = order;
    QList<bool> selected(order.size(), false);
    for (int row : rows)
        selected[row] = true;
    // Walk towards the edge the rows move to, so that a block moves as one.
    const int size = int(order.size());
    for (int step = 0; step < size; ++step) {
        const int row = delta < 0 ? step : size - 1 - step;
        const int target = row + delta;
        if (!selected[row] || target < 0 || target >= size || selected[target])
            continue;
        std::swap(result[row], result[target]);
        std::swap(selected[row], selected[target]);
    }
    return result;
}

QList<qint64> insertAt(const QList<qint64> &order, const QList<qint64> &ids, int position)
{
    position = std::clamp(position, 0, int(order.size()));
    QList<qint64> result;
    result.reserve(order.size() + ids.size());
    result << order.mid(0, position) << ids << order.mid(position);
    return result;
}

} // namespace PlaylistOrder
