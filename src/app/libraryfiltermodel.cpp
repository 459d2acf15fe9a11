#include "app/libraryfiltermodel.h"

#include "app/librarymodel.h"

#include <algorithm>
#include <numeric>

namespace {

// Between the fields of a search text. A control character no title carries, and a
// filter text holding one matches nothing, so no match can run from one field into the next.
constexpr QChar kFieldSeparator = QChar(0x1F);

// The text columns in the order their fields stand in a search text; -1 for the others.
int fieldOf(int column)
{
    switch (column) {
    case LibraryModel::TitleColumn: return 0;
    case LibraryModel::ArtistColumn: return 1;
    case LibraryModel::AlbumColumn: return 2;
    case LibraryModel::StationColumn: return 3;
    default: return -1;
    }
}

QStringView field(QStringView searchText, int field)
{
    qsizetype start = 0;
    for (int i = 0; i <= field; ++i) {
        start = searchText.indexOf(kFieldSeparator, start);
        if (start < 0)
            return {};
        ++start;
    }
    const qsizetype end = searchText.indexOf(kFieldSeparator, start);
    return searchText.mid(start, end < 0 ? -1 : end - start);
}

} // namespace

LibraryFilterModel::LibraryFilterModel(QObject *parent)
    : QAbstractProxyModel(parent)
{
    m_matcher.setCaseSensitivity(Qt::CaseSensitive);
}

QString LibraryFilterModel::searchText(const QString &title, const QString &artist, const QString &album,
                                       const QString &station)
{
    QString text;
    text.reserve(title.size() + artist.size() + album.size() + station.size() + 4);
    for (const QString *part : {&title, &artist, &album, &station}) {
        text += kFieldSeparator;
        text += *part;
    }
    text = std::move(text).toCaseFolded();
    // The first four separators are ours; any further one came with a field.
    for (qsizetype i = 1, seen = 1; i < text.size(); ++i) {
        if (text[i] == kFieldSeparator && ++seen > 4)
            text[i] = QLatin1Char(' ');
    }
    return text;
}

QString LibraryFilterModel::searchTextOf(int sourceRow) const
{
    const Track *track = m_library->trackAt(sourceRow);
    return track ? searchText(track->title, track->artist, track->album, track->station.value_or(QString()))
                 : QString();
}

void LibraryFilterModel::setSourceModel(QAbstractItemModel *model)
{
    beginResetModel();
    for (const QMetaObject::Connection &connection : std::as_const(m_connections))
        disconnect(connection);
    m_connections.clear();
    QAbstractProxyModel::setSourceModel(model);
    m_library = qobject_cast<LibraryModel *>(model);
    if (m_library) {
        using M = QAbstractItemModel;
        m_connections = {
            connect(model, &M::rowsInserted, this, &LibraryFilterModel::sourceRowsInserted),
            connect(model, &M::rowsAboutToBeRemoved, this, &LibraryFilterModel::sourceRowsAboutToBeRemoved),
            connect(model, &M::rowsRemoved, this, &LibraryFilterModel::sourceRowsRemoved),
            connect(model, &M::dataChanged, this, &LibraryFilterModel::sourceDataChanged),
            connect(model, &M::modelAboutToBeReset, this, &LibraryFilterModel::sourceAboutToBeReset),
            connect(model, &M::modelReset, this, &LibraryFilterModel::sourceReset),
            connect(model, &M::layoutAboutToBeChanged, this, &LibraryFilterModel::sourceAboutToBeReset),
            connect(model, &M::layoutChanged, this, &LibraryFilterModel::sourceReset),
        };
    }
    rebuild();
    endResetModel();
}

void LibraryFilterModel::setFilterText(const QString &text)
{
    const QString folded = text.trimmed().toCaseFolded();
    if (folded == m_text)
        return;
    beginResetModel();
    const QString previous = std::exchange(m_text, folded);
    m_matcher.setPattern(m_text);
    m_spansFields = m_text.contains(kFieldSeparator);
    refilter(previous);
    endResetModel();
}

bool LibraryFilterModel::accepts(int sourceRow) const
{
    return m_text.isEmpty() || (!m_spansFields && m_matcher.indexIn(m_searchTexts[size_t(sourceRow)]) >= 0);
}

double LibraryFilterModel::numberKey(int sourceRow) const
{
    const Track *track = m_library->trackAt(sourceRow);
    if (!track)
        return 0;
    switch (m_sortColumn) {
    case LibraryModel::FavoriteColumn: return track->isFavorite ? 1 : 0;
    case LibraryModel::DurationColumn: return track->duration;
    // Milliseconds since 1970 stay exact in a double for the next 280,000 years.
    case LibraryModel::DateAddedColumn: return double(LibraryModel::dateSortKey(track->dateAdded));
    case LibraryModel::PlayCountColumn: return track->playCount;
    default: return 0;
    }
}

bool LibraryFilterModel::before(int sourceA, int sourceB) const
{
    int order = 0;
    if (const int f = fieldOf(m_sortColumn); f >= 0) {
        order = field(m_searchTexts[size_t(sourceA)], f).compare(field(m_searchTexts[size_t(sourceB)], f));
    } else if (m_sortColumn >= 0 && m_sortColumn < LibraryModel::ColumnCount) {
        const double a = numberKey(sourceA);
        const double b = numberKey(sourceB);
        order = a < b ? -1 : (b < a ? 1 : 0);
    }
    if (order != 0)
        return m_sortOrder == Qt::AscendingOrder ? order < 0 : order > 0;
    return sourceA < sourceB;
}

void LibraryFilterModel::sortAll()
{
    m_order.resize(m_searchTexts.size());
    std::iota(m_order.begin(), m_order.end(), 0);
    const bool descending = m_sortOrder == Qt::DescendingOrder;
    // The keys once per row instead of once per comparison; the comparisons then break
    // ties by source row exactly as before() does.
    auto sortBy = [&](const auto &keys) {
        std::sort(m_order.begin(), m_order.end(), [&](int a, int b) {
            const auto &ka = keys[size_t(a)];
            const auto &kb = keys[size_t(b)];
            if (ka < kb)
                return !descending;
            if (kb < ka)
                return descending;
            return a < b;
        });
    };
    if (const int f = fieldOf(m_sortColumn); f >= 0) {
        std::vector<QStringView> keys;
        keys.reserve(m_searchTexts.size());
        for (const QString &text : m_searchTexts)
            keys.push_back(field(text, f));
        sortBy(keys);
    } else if (m_sortColumn >= 0 && m_sortColumn < LibraryModel::ColumnCount) {
        std::vector<double> keys(m_searchTexts.size());
        for (size_t row = 0; row < keys.size(); ++row)
            keys[row] = numberKey(int(row));
        sortBy(keys);
    }
}

void LibraryFilterModel::refilter(const QString &previousText)
{
    if (m_text.isEmpty()) {
        m_shown = m_order;
    } else if (m_text.contains(previousText)) {
        // Narrowing: a row hidden by the shorter text stays hidden.
        std::erase_if(m_shown, [this](int row) { return !accepts(row); });
    } else {
        // A row shown now that the text is shorter still matches; only the hidden ones
        // need the test.
        const bool widening = previousText.contains(m_text);
        std::vector<int> shown;
        shown.reserve(m_order.size());
        for (int row : m_order) {
            if ((widening && m_proxyRows[size_t(row)] >= 0) || accepts(row))
                shown.push_back(row);
        }
        m_shown = std::move(shown);
    }
    indexShownRows();
}

void LibraryFilterModel::indexShownRows()
{
    m_proxyRows.assign(m_searchTexts.size(), -1);
    for (size_t row = 0; row < m_shown.size(); ++row)
        m_proxyRows[size_t(m_shown[row])] = int(row);
}

void LibraryFilterModel::rebuild()
{
    const int rows = m_library ? m_library->rowCount() : 0;
    m_searchTexts.clear();
    m_searchTexts.reserve(size_t(rows));
    for (int row = 0; row < rows; ++row)
        m_searchTexts.push_back(searchTextOf(row));
    sortAll();
    // Everything shown, then narrowed by the text.
    m_shown = m_order;
    refilter(QString());
}

void LibraryFilterModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= LibraryModel::ColumnCount)
        column = -1;
    if (column == m_sortColumn && order == m_sortOrder)
        return;
    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    std::vector<int> sourceRows;
    sourceRows.reserve(size_t(before.size()));
    for (const QModelIndex &index : before)
        sourceRows.push_back(m_shown[size_t(index.row())]);

    m_sortColumn = column;
    m_sortOrder = order;
    sortAll();
    // The same rows stay shown, in the new order.
    std::vector<int> shown;
    shown.reserve(m_shown.size());
    for (int row : m_order) {
        if (m_proxyRows[size_t(row)] >= 0)
            shown.push_back(row);
    }
    m_shown = std::move(shown);
    indexShownRows();

    QModelIndexList after;
    after.reserve(before.size());
    for (qsizetype i = 0; i < before.size(); ++i)
        after << index(m_proxyRows[size_t(sourceRows[size_t(i)])], before[i].column());
    changePersistentIndexList(before, after);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

qsizetype LibraryFilterModel::shownPlaceFor(int sourceRow) const
{
    return std::lower_bound(m_shown.cbegin(), m_shown.cend(), sourceRow,
                            [this](int a, int b) { return before(a, b); })
           - m_shown.cbegin();
}

void LibraryFilterModel::sourceRowsInserted(const QModelIndex &parent, int first, int last)
{
    if (parent.isValid())
        return;
    const int count = last - first + 1;
    // Many rows at once (a folder imported): sorting everything again is cheaper than
    // finding each one's place.
    if (count > 64) {
        beginResetModel();
        rebuild();
        endResetModel();
        return;
    }
    for (std::vector<int> *rows : {&m_order, &m_shown}) {
        for (int &row : *rows) {
            if (row >= first)
                row += count;
        }
    }
    for (int row = first; row <= last; ++row)
        m_searchTexts.insert(m_searchTexts.begin() + row, searchTextOf(row));
    indexShownRows();
    for (int row = first; row <= last; ++row) {
        m_order.insert(std::lower_bound(m_order.cbegin(), m_order.cend(), row,
                                        [this](int a, int b) { return before(a, b); }),
                       row);
        if (!accepts(row))
            continue;
        const qsizetype place = shownPlaceFor(row);
        beginInsertRows({}, int(place), int(place));
        m_shown.insert(m_shown.begin() + place, row);
        indexShownRows();
        endInsertRows();
    }
}

void LibraryFilterModel::sourceRowsAboutToBeRemoved(const QModelIndex &parent, int first, int last)
{
    if (parent.isValid())
        return;
    std::vector<int> shownRows;
    for (int row = first; row <= last; ++row) {
        if (m_proxyRows[size_t(row)] >= 0)
            shownRows.push_back(m_proxyRows[size_t(row)]);
    }
    // From the bottom up, so the rows still to go keep their numbers.
    std::sort(shownRows.begin(), shownRows.end(), std::greater<>());
    for (int proxyRow : shownRows) {
        beginRemoveRows({}, proxyRow, proxyRow);
        m_proxyRows[size_t(m_shown[size_t(proxyRow)])] = -1;
        m_shown.erase(m_shown.begin() + proxyRow);
        endRemoveRows();
    }
}

void LibraryFilterModel::sourceRowsRemoved(const QModelIndex &parent, int first, int last)
{
    if (parent.isValid())
        return;
    const int count = last - first + 1;
    std::erase_if(m_order, [&](int row) { return row >= first && row <= last; });
    for (std::vector<int> *rows : {&m_order, &m_shown}) {
        for (int &row : *rows) {
            if (row > last)
                row -= count;
        }
    }
    m_searchTexts.erase(m_searchTexts.begin() + first, m_searchTexts.begin() + last + 1);
    indexShownRows();
}

void LibraryFilterModel::sourceDataChanged(const QModelIndex &topLeft, const QModelIndex &bottomRight)
{
    if (topLeft.parent().isValid())
        return;
    for (int row = topLeft.row(); row <= bottomRight.row(); ++row)
        sourceRowChanged(row);
}

void LibraryFilterModel::sourceRowChanged(int sourceRow)
{
    if (sourceRow < 0 || size_t(sourceRow) >= m_searchTexts.size())
        return;
    m_searchTexts[size_t(sourceRow)] = searchTextOf(sourceRow);
    // Its key may have changed: out of the order and back in at its new place.
    m_order.erase(std::find(m_order.begin(), m_order.end(), sourceRow));
    m_order.insert(std::lower_bound(m_order.cbegin(), m_order.cend(), sourceRow,
                                    [this](int a, int b) { return before(a, b); }),
                   sourceRow);

    const int from = m_proxyRows[size_t(sourceRow)];
    const bool shown = accepts(sourceRow);
    if (from >= 0)
        m_shown.erase(m_shown.begin() + from);
    const qsizetype to = shownPlaceFor(sourceRow);
    if (from >= 0)
        m_shown.insert(m_shown.begin() + from, sourceRow); // back until the move is announced
    const int lastColumn = columnCount() - 1;
    if (from >= 0 && shown) {
        if (to != from) {
            // In the coordinates before the move: below its old place counts one more.
            beginMoveRows({}, from, from, {}, int(to > from ? to + 1 : to));
            m_shown.erase(m_shown.begin() + from);
            m_shown.insert(m_shown.begin() + to, sourceRow);
            indexShownRows();
            endMoveRows();
        }
        Q_EMIT dataChanged(index(int(to), 0), index(int(to), lastColumn));
    } else if (from >= 0) {
        beginRemoveRows({}, from, from);
        m_shown.erase(m_shown.begin() + from);
        indexShownRows();
        endRemoveRows();
    } else if (shown) {
        beginInsertRows({}, int(to), int(to));
        m_shown.insert(m_shown.begin() + to, sourceRow);
        indexShownRows();
        endInsertRows();
    }
}

void LibraryFilterModel::sourceAboutToBeReset()
{
    beginResetModel();
}

void LibraryFilterModel::sourceReset()
{
    rebuild();
    endResetModel();
}

QModelIndex LibraryFilterModel::index(int row, int column, const QModelIndex &parent) const
{
    if (parent.isValid() || row < 0 || size_t(row) >= m_shown.size() || column < 0 || column >= columnCount())
        return {};
    return createIndex(row, column);
}

QModelIndex LibraryFilterModel::parent(const QModelIndex &) const
{
    return {};
}

QModelIndex LibraryFilterModel::sibling(int row, int column, const QModelIndex &) const
{
    return index(row, column);
}

int LibraryFilterModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_shown.size());
}

int LibraryFilterModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() || !m_library ? 0 : m_library->columnCount();
}

bool LibraryFilterModel::hasChildren(const QModelIndex &parent) const
{
    return !parent.isValid() && !m_shown.empty();
}

QModelIndex LibraryFilterModel::mapToSource(const QModelIndex &proxyIndex) const
{
    if (!m_library || !proxyIndex.isValid() || proxyIndex.model() != this || size_t(proxyIndex.row()) >= m_shown.size())
        return {};
    return m_library->index(m_shown[size_t(proxyIndex.row())], proxyIndex.column());
}

QModelIndex LibraryFilterModel::mapFromSource(const QModelIndex &sourceIndex) const
{
    if (!m_library || !sourceIndex.isValid() || sourceIndex.model() != m_library
        || size_t(sourceIndex.row()) >= m_proxyRows.size())
        return {};
    const int row = m_proxyRows[size_t(sourceIndex.row())];
    return row < 0 ? QModelIndex() : createIndex(row, sourceIndex.column());
}
