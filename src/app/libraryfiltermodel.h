#pragma once

#include <QAbstractProxyModel>
#include <QStringMatcher>

#include <vector>

class LibraryModel;

// The library table as shown: the rows whose title, artist, album or station contain the
// filter text (case-insensitive), in the order of the sort column.
//
// Built for typing at 100,000 rows. Each source row keeps its four fields case-folded and
// joined, so a keystroke is one plain substring search per row. All source rows are kept
// in sort order and sorted again only when the sort column or order changes; a new text
// takes one pass over them (or over the shown rows only, when it narrows the last one) and
// is announced as one model reset instead of thousands of inserted and removed rows. A
// reset drops the view's selection; LibraryView puts it back by track id. Single rows
// saved, edited or deleted in the store move as single inserted, moved or removed rows.
//
// Only a LibraryModel can be the source. Lives on the GUI thread.
class LibraryFilterModel : public QAbstractProxyModel {
    Q_OBJECT

public:
    explicit LibraryFilterModel(QObject *parent = nullptr);

    void setSourceModel(QAbstractItemModel *model) override;
    void setFilterText(const QString &text);
    // Trimmed and case-folded, as it is matched.
    [[nodiscard]] const QString &filterText() const { return m_text; }
    // -1: the source's order.
    [[nodiscard]] int sortColumn() const { return m_sortColumn; }
    [[nodiscard]] Qt::SortOrder sortOrder() const { return m_sortOrder; }

    // What a row's fields are matched against: title, artist, album and station,
    // case-folded, each after a separator no filter text can span.
    [[nodiscard]] static QString searchText(const QString &title, const QString &artist, const QString &album,
                                            const QString &station);

    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;
    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    QModelIndex sibling(int row, int column, const QModelIndex &index) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    bool hasChildren(const QModelIndex &parent = {}) const override;
    QModelIndex mapToSource(const QModelIndex &proxyIndex) const override;
    QModelIndex mapFromSource(const QModelIndex &sourceIndex) const override;

private:
    [[nodiscard]] QString searchTextOf(int sourceRow) const;
    [[nodiscard]] bool accepts(int sourceRow) const;
    // The sort order over source rows: the column's value, ties in source order, so the
    // order is total and one row has exactly one place.
    [[nodiscard]] bool before(int sourceA, int sourceB) const;
    [[nodiscard]] double numberKey(int sourceRow) const;
    [[nodiscard]] qsizetype shownPlaceFor(int sourceRow) const;

    void rebuild();
    void sortAll();
    void refilter(const QString &previousText);
    void indexShownRows();

    void sourceRowsInserted(const QModelIndex &parent, int first, int last);
    void sourceRowsAboutToBeRemoved(const QModelIndex &parent, int first, int last);
    void sourceRowsRemoved(const QModelIndex &parent, int first, int last);
    void sourceDataChanged(const QModelIndex &topLeft, const QModelIndex &bottomRight);
    void sourceRowChanged(int sourceRow);
    void sourceAboutToBeReset();
    void sourceReset();

    const LibraryModel *m_library = nullptr;
    QString m_text;
    QStringMatcher m_matcher;
    // The text holds a field separator and so matches nothing.
    bool m_spansFields = false;
    int m_sortColumn = -1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    // Per source row.
    std::vector<QString> m_searchTexts;
    // Per source row: its row here, -1 while filtered out.
    std::vector<int> m_proxyRows;
    // Every source row, in sort order.
    std::vector<int> m_order;
    // The source rows shown, in sort order.
    std::vector<int> m_shown;
    QList<QMetaObject::Connection> m_connections;
};
