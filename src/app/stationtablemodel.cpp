#include "app/stationtablemodel.h"

#include "app/countrynames.h"
#include "app/texts.h"

#include <QBrush>
#include <QFont>
#include <QGuiApplication>
#include <QIcon>
#include <QMimeData>
#include <QPainter>
#include <QPalette>
#include <QPixmap>

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
    const qsizetype oldCount = m_stations.size();
    const bool extends = oldCount > 0 && stations.size() > oldCount &&
                         std::equal(m_stations.begin(), m_stations.end(), stations.begin());
    if (extends) {
        beginInsertRows({}, int(oldCount), int(stations.size() - 1));
        m_stations = stations;
        for (qsizetype i = oldCount; i < m_stations.size(); ++i)
            m_rowById.insert(m_stations[i].id, int(i));
        endInsertRows();
        return;
    }
    if (stations == m_stations)
        return;
    beginResetModel();
    m_stations = stations;
    m_rowById.clear();
    for (qsizetype i = 0; i < m_stations.size(); ++i)
        m_rowById.insert(m_stations[i].id, int(i));
    endResetModel();
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
        if (role == Qt::DecorationRole && m_scheduledIds.contains(station->id))
            return clockIcon();
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
                return QBrush(QColor(0x2e, 0x7d, 0x32));
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
