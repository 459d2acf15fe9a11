#include "app/stationtablemodel.h"

#include "app/stationlogocache.h"
#include "app/countrynames.h"
#include "app/texts.h"
#include "app/themeicons.h"

#include <QBrush>
#include <QCollator>
#include <QFont>
#include <QGuiApplication>
#include <QIcon>
#include <QMimeData>
#include <QPainter>
#include <QPalette>
#include <QPixmap>

#include <algorithm>

namespace {

// A small clock face in the text colour, drawn once: no icon theme is sure to have one.
const QIcon &clockIcon()
{
    static const QIcon icon = [] {
        constexpr int kSize = 32;
        QPixmap pixmap(kSize, kSize);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        const QColor ink = QGuiApplication::palette().color(QPalette::Text);
        painter.setPen(QPen(ink, 3));
        painter.drawEllipse(QRectF(3, 3, kSize - 6, kSize - 6));
        painter.setPen(QPen(ink, 3, Qt::SolidLine, Qt::RoundCap));
        const QPointF centre(kSize / 2.0, kSize / 2.0);
        painter.drawLine(centre, centre + QPointF(0, -9));
        painter.drawLine(centre, centre + QPointF(7, 0));
        painter.end();
        return QIcon(pixmap);
    }();
    return icon;
}

} // namespace

StationTableModel::StationTableModel(QObject *parent)
    : QAbstractTableModel(parent)
{
}

void StationTableModel::setStations(const QList<Station> &stations)
{
    const qsizetype oldCount = m_given.size();
    const bool extends = oldCount > 0 && stations.size() > oldCount &&
                         std::equal(m_given.begin(), m_given.end(), stations.begin());
    if (extends) {
        // New rows first land at the end, then move to their sorted places: the rows
        // already shown keep their selection either way.
        beginInsertRows({}, int(oldCount), int(stations.size() - 1));
        m_given = stations;
        m_stations.append(stations.mid(oldCount));
        for (qsizetype i = oldCount; i < m_stations.size(); ++i)
            m_rowById.insert(m_stations[i].id, int(i));
        endInsertRows();
        if (m_sortColumn >= 0)
            applySort();
        return;
    }
    if (stations == m_given)
        return;
    beginResetModel();
    m_given = stations;
    m_stations = sorted(stations);
    rebuildRowIndex();
    endResetModel();
}

void StationTableModel::sort(int column, Qt::SortOrder order)
{
    const int valid = column >= 0 && column < ColumnCount ? column : -1;
    if (valid == m_sortColumn && (valid < 0 || order == m_sortOrder))
        return;
    m_sortColumn = valid;
    m_sortOrder = order;
    applySort();
}

void StationTableModel::applySort()
{
    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    QStringList ids;
    ids.reserve(before.size());
    for (const QModelIndex &index : before)
        ids << m_stations.value(index.row()).id;
    m_stations = sorted(m_given);
    rebuildRowIndex();
    QModelIndexList after;
    after.reserve(before.size());
    for (qsizetype i = 0; i < before.size(); ++i) {
        const int row = rowOf(ids[i]);
        after << (row >= 0 ? index(row, before[i].column()) : QModelIndex());
    }
    changePersistentIndexList(before, after);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

QList<Station> StationTableModel::sorted(QList<Station> stations) const
{
    if (m_sortColumn < 0)
        return stations;
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    collator.setNumericMode(true);
    const auto text = [](const Station &s, int column) -> const QString & {
        return column == CountryColumn ? s.country : (column == CodecColumn ? s.codec : s.name);
    };
    // Ascending; a descending sort swaps the operands so ties keep the given order.
    const auto less = [&](const Station &a, const Station &b) {
        switch (m_sortColumn) {
        case BitrateColumn: return a.bitrate < b.bitrate;
        case TitlesColumn: return m_icy.value(a.id) && !m_icy.value(b.id); // stations with titles first
        default: return collator.compare(text(a, m_sortColumn), text(b, m_sortColumn)) < 0;
        }
    };
    if (m_sortOrder == Qt::AscendingOrder)
        std::stable_sort(stations.begin(), stations.end(), less);
    else
        std::stable_sort(stations.begin(), stations.end(), [&](const Station &a, const Station &b) { return less(b, a); });
    return stations;
}

void StationTableModel::rebuildRowIndex()
{
    m_rowById.clear();
    for (qsizetype i = 0; i < m_stations.size(); ++i)
        m_rowById.insert(m_stations[i].id, int(i));
}

const Station *StationTableModel::stationAt(int row) const
{
    return row >= 0 && row < m_stations.size() ? &m_stations[row] : nullptr;
}

int StationTableModel::rowOf(const QString &stationId) const
{
    return m_rowById.value(stationId, -1);
}

void StationTableModel::setIcyStatus(const QHash<QString, bool> &icy)
{
    m_icy = icy;
    refreshColumn(TitlesColumn);
}

void StationTableModel::setIcy(const QString &stationId, bool icy)
{
    m_icy.insert(stationId, icy);
    const int row = rowOf(stationId);
    if (row >= 0)
        Q_EMIT dataChanged(index(row, TitlesColumn), index(row, TitlesColumn));
}

void StationTableModel::setFavoriteIds(const QSet<QString> &ids)
{
    if (ids == m_favoriteIds)
        return;
    m_favoriteIds = ids;
    refreshColumn(NameColumn);
}

void StationTableModel::setRecordingIds(const QSet<QString> &ids)
{
    if (ids == m_recordingIds)
        return;
    m_recordingIds = ids;
    refreshColumn(NameColumn);
}

void StationTableModel::setScheduledIds(const QSet<QString> &ids)
{
    if (ids == m_scheduledIds)
        return;
    m_scheduledIds = ids;
    refreshColumn(NameColumn);
}

void StationTableModel::setLogoCache(StationLogoCache *logos)
{
    if (m_logos)
        disconnect(m_logos, nullptr, this, nullptr);
    m_logos = logos;
    if (m_logos) {
        connect(m_logos, &StationLogoCache::logoChanged, this, [this](const QString &favicon) {
            for (qsizetype row = 0; row < m_stations.size(); ++row) {
                if (m_stations[row].favicon == favicon)
                    Q_EMIT dataChanged(index(int(row), NameColumn), index(int(row), NameColumn), {Qt::DecorationRole});
            }
        });
    }
    refreshColumn(NameColumn);
}

void StationTableModel::refreshColumn(int column)
{
    if (!m_stations.isEmpty())
        Q_EMIT dataChanged(index(0, column), index(int(m_stations.size()) - 1, column));
}

int StationTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_stations.size());
}

int StationTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant StationTableModel::data(const QModelIndex &index, int role) const
{
    const Station *station = stationAt(index.row());
    if (!station)
        return {};
    if (role == kStationIdRole)
        return station->id;
    const bool recording = m_recordingIds.contains(station->id);
    switch (index.column()) {
    case NameColumn:
        if (role == Qt::DisplayRole) {
            QString text = station->name;
            if (m_favoriteIds.contains(station->id))
                text = QStringLiteral("★ ") + text;
            if (recording)
                text += QStringLiteral("  ● ") + tx("station.recording");
            if (m_scheduledIds.contains(station->id))
                text += QStringLiteral("  ") + tx("fav.scheduled");
            return text;
        }
        if (role == Qt::DecorationRole) {
            // The plan is the news of the row; the name says which station it is.
            if (m_scheduledIds.contains(station->id))
                return clockIcon();
            if (m_logos)
                return m_logos->icon(station->favicon);
        }
        if (role == Qt::ToolTipRole)
            return station->streamUrl;
        if (role == Qt::FontRole && recording) {
            QFont font;
            font.setBold(true);
            return font;
        }
        break;
    case CountryColumn:
        if (role == Qt::DisplayRole)
            return CountryNames::display(station->country);
        break;
    case CodecColumn:
        if (role == Qt::DisplayRole)
            return station->codec;
        break;
    case BitrateColumn:
        if (role == Qt::DisplayRole)
            return station->bitrate > 0 ? Texts::text("station.kbps").arg(station->bitrate) : QString();
        if (role == Qt::TextAlignmentRole)
            return int(Qt::AlignRight | Qt::AlignVCenter);
        break;
    case TitlesColumn:
        if (m_icy.value(station->id)) {
            if (role == Qt::DisplayRole)
                return tx("station.icyBadge");
            if (role == Qt::ToolTipRole)
                return tx("station.icyTip");
            if (role == Qt::ForegroundRole)
                return QBrush(ThemeIcons::successInk(QGuiApplication::palette()));
        }
        break;
    default:
        break;
    }
    return {};
}

QVariant StationTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case NameColumn: return tx("station.name");
    case CountryColumn: return tx("station.country");
    case CodecColumn: return tx("station.codec");
    case BitrateColumn: return tx("station.bitrate");
    case TitlesColumn: return tx("station.titles");
    default: return {};
    }
}

Qt::ItemFlags StationTableModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags f = QAbstractTableModel::flags(index);
    if (!onDropIds)
        return f;
    // Drops land between rows, never onto one.
    return index.isValid() ? f | Qt::ItemIsDragEnabled : f | Qt::ItemIsDropEnabled;
}

Qt::DropActions StationTableModel::supportedDropActions() const
{
    return onDropIds ? Qt::MoveAction : Qt::IgnoreAction;
}

QStringList StationTableModel::mimeTypes() const
{
    return {QString::fromLatin1(kIdsMimeType)};
}

QMimeData *StationTableModel::mimeData(const QModelIndexList &indexes) const
{
    QList<int> rows;
    for (const QModelIndex &index : indexes) {
        if (!rows.contains(index.row()) && stationAt(index.row()))
            rows.append(index.row());
    }
    std::sort(rows.begin(), rows.end());
    QStringList ids;
    for (int row : rows)
        ids << m_stations[row].id;
    auto *mime = new QMimeData;
    mime->setData(QString::fromLatin1(kIdsMimeType), ids.join(QLatin1Char('\n')).toUtf8());
    return mime;
}

bool StationTableModel::canDropMimeData(const QMimeData *data, Qt::DropAction action, int, int,
                                        const QModelIndex &) const
{
    return onDropIds && action == Qt::MoveAction && data->hasFormat(QString::fromLatin1(kIdsMimeType));
}

bool StationTableModel::dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                                     const QModelIndex &parent)
{
    if (!canDropMimeData(data, action, row, column, parent))
        return false;
    const QStringList ids =
        QString::fromUtf8(data->data(QString::fromLatin1(kIdsMimeType))).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    // Dropped onto a row: before it. Below the last row: the end.
    int destination = row >= 0 ? row : (parent.isValid() ? parent.row() : rowCount());
    onDropIds(ids, destination);
    // The store's change signal refreshes the rows; returning false keeps the view from
    // removing the dragged rows a second time.
    return false;
}
