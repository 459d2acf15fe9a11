#pragma once

#include <QString>

class QHBoxLayout;
class QLabel;
class QVBoxLayout;
class QTableView;
class QWidget;

// Small building blocks the views share, so every page has the same title, spacing and
// empty state.
namespace UiKit {

inline constexpr int kPageMargin = 20;
inline constexpr int kSpacing = 10;

// The frame of a page: margins, spacing and a title row whose right end holds a quiet
// count label (hidden until the page sets a text) and whatever the page adds there.
struct Page {
    QVBoxLayout *layout = nullptr;
    QHBoxLayout *titleRow = nullptr;
    QLabel *count = nullptr;
};
[[nodiscard]] Page makePage(QWidget *page, const QString &title);

// A page title in a larger, bold font.
[[nodiscard]] QLabel *makeTitle(const QString &text, QWidget *parent = nullptr);
// Grey helper text that wraps.
[[nodiscard]] QLabel *makeHint(const QString &text, QWidget *parent = nullptr);
// A centred title and hint for a list that has nothing to show. The labels are named
// "emptyTitle" and "emptyHint" so a view can change their texts later.
[[nodiscard]] QWidget *makeEmptyState(const QString &title, const QString &hint, QWidget *parent = nullptr);
void setEmptyStateTexts(QWidget *emptyState, const QString &title, const QString &hint);

// Row selection, no grid, alternating rows, a stretching first column: how every list
// of stations and tracks looks.
void configureTable(QTableView *table);

} // namespace UiKit
