#pragma once

#include <QList>

#include <span>

// Fitting a table's columns into the width it has, so a narrow window shows fewer columns
// instead of a sideways scroll bar, and the widest share goes where the text is long.
namespace ColumnFit {

struct Column {
    int minWidth = 40; // px below which the column is not worth showing
    int weight = 0;    // share of the room beyond the minimums; 0 keeps the minimum
    int priority = 0;  // the lowest goes first when the minimums do not fit
};

// Each column's width in `available` pixels, in the given order; 0 for a column left out.
// Columns are left out lowest priority first (the later one of equal priority first)
// until the minimums of the rest fit; the room left is shared by weight, the remainder
// going to the heaviest column. At least the highest-priority column stays, at its minimum.
[[nodiscard]] QList<int> fit(std::span<const Column> columns, int available);

} // namespace ColumnFit
