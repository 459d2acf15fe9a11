#include "app/columnfit.h"

#include <algorithm>
#include <numeric>

namespace ColumnFit {

QList<int> fit(std::span<const Column> columns, int available)
{
    const qsizetype count = qsizetype(columns.size());
    QList<int> widths(count, 0);
    if (count == 0)
        return widths;
    // Indices in the order they are given up: lowest priority, then the later column.
    QList<qsizetype> dropOrder(count);
    std::iota(dropOrder.begin(), dropOrder.end(), 0);
    std::stable_sort(dropOrder.begin(), dropOrder.end(), [&](qsizetype a, qsizetype b) {
        if (columns[a].priority != columns[b].priority)
            return columns[a].priority < columns[b].priority;
        return a > b;
    });
    QList<bool> shown(count, true);
    int minimums = 0;
    for (const Column &column : columns)
        minimums += column.minWidth;
    for (qsizetype i = 0; i < count - 1 && minimums > available; ++i) {
        shown[dropOrder[i]] = false;
        minimums -= columns[dropOrder[i]].minWidth;
    }
    const int room = std::max(0, available - minimums);
    int weights = 0;
    qsizetype heaviest = -1;
    for (qsizetype i = 0; i < count; ++i) {
        if (!shown[i])
            continue;
        weights += columns[i].weight;
        if (heaviest < 0 || columns[i].weight > columns[heaviest].weight)
            heaviest = i;
    }
    int given = 0;
    for (qsizetype i = 0; i < count; ++i) {
        if (!shown[i])
            continue;
        const int extra = weights > 0 ? int(qint64(room) * columns[i].weight / weights) : 0;
        widths[i] = columns[i].minWidth + extra;
        given += extra;
    }
    // What integer division left over: to the column that takes the most anyway.
    if (weights > 0 && heaviest >= 0)
        widths[heaviest] += room - given;
    return widths;
}

} // namespace ColumnFit
