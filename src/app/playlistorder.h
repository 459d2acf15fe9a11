#pragma once

#include <QList>

// The arithmetic of reordering a playlist in the view: given the entry ids in their shown
// order and the rows the user acts on, the new order to store. Rows outside the list are
// ignored, repeated rows count once.
namespace PlaylistOrder {

// The rows taken out and put back, in their old relative order, in front of the entry
// that stood at `destination` (0 .. size; size means at the end). What a drag does.
[[nodiscard]] QList<qint64> moveRows(const QList<qint64> &order, QList<int> rows, int destination);

// Every row one place up (delta -1) or down (+1). A selected row that is already at the
// edge, or stands behind another selected row at the edge, stays; the others pass it by
// and keep their relative order.
[[nodiscard]] QList<qint64> shiftRows(const QList<qint64> &order, QList<int> rows, int delta);

// `ids` inserted in front of the entry at `position` (clamped to 0 .. size).
[[nodiscard]] QList<qint64> insertAt(const QList<qint64> &order, const QList<qint64> &ids, int position);

} // namespace PlaylistOrder
