#include "app/uikit.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QTableView>
#include <QVBoxLayout>

namespace UiKit {

Page makePage(QWidget *page, const QString &title)
{
    Page out;
    out.layout = new QVBoxLayout(page);
    out.layout->setContentsMargins(kPageMargin, kPageMargin, kPageMargin, kPageMargin);
    out.layout->setSpacing(kSpacing);
    out.titleRow = new QHBoxLayout;
    out.titleRow->addWidget(makeTitle(title, page));
    out.titleRow->addStretch();
    out.count = makeHint(QString(), page);
    out.count->setWordWrap(false);
    out.count->hide();
    out.titleRow->addWidget(out.count);
    out.layout->addLayout(out.titleRow);
    return out;
}

QLabel *makeTitle(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 1.6);
    font.setBold(true);
    label->setFont(font);
    return label;
}

QLabel *makeHint(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    QPalette palette = label->palette();
    // Half way between text and background: quieter than text, still easy to read.
    const QColor ink = palette.color(QPalette::WindowText);
    const QColor window = palette.color(QPalette::Window);
    palette.setColor(QPalette::WindowText, QColor((ink.red() * 11 + window.red() * 9) / 20,
                                                  (ink.green() * 11 + window.green() * 9) / 20,
                                                  (ink.blue() * 11 + window.blue() * 9) / 20));
    label->setPalette(palette);
    return label;
}

QWidget *makeEmptyState(const QString &title, const QString &hint, QWidget *parent)
{
    auto *widget = new QWidget(parent);
    auto *layout = new QVBoxLayout(widget);
    layout->addStretch(2);
    QLabel *titleLabel = makeTitle(title, widget);
    titleLabel->setObjectName(QStringLiteral("emptyTitle"));
    titleLabel->setAlignment(Qt::AlignCenter);
    QFont font = titleLabel->font();
    font.setPointSizeF(font.pointSizeF() / 1.6 * 1.25);
    titleLabel->setFont(font);
    QLabel *hintLabel = makeHint(hint, widget);
    hintLabel->setObjectName(QStringLiteral("emptyHint"));
    hintLabel->setAlignment(Qt::AlignCenter);
    layout->addWidget(titleLabel);
    layout->addSpacing(6);
    // No alignment flag here: it would keep the wrapped hint at one line's height.
    layout->addWidget(hintLabel);
    layout->addStretch(3);
    return widget;
}

void setEmptyStateTexts(QWidget *emptyState, const QString &title, const QString &hint)
{
    if (auto *label = emptyState->findChild<QLabel *>(QStringLiteral("emptyTitle")))
        label->setText(title);
    if (auto *label = emptyState->findChild<QLabel *>(QStringLiteral("emptyHint")))
        label->setText(hint);
}

void configureTable(QTableView *table)
{
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setAlternatingRowColors(true);
    table->setShowGrid(false);
    table->setWordWrap(false);
    // Tab goes to the next control, not the next cell: rows are what a list selects.
    table->setTabKeyNavigation(false);
    table->verticalHeader()->hide();
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 12);
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    table->horizontalHeader()->setHighlightSections(false);
    table->setContextMenuPolicy(Qt::CustomContextMenu);
}

} // namespace UiKit
