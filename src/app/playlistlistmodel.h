#pragma once

#include <QAbstractListModel>
#include <QList>
#include <QString>

class LibraryStore;

// The left column of the library: "All tracks" first, then every playlist in creation
// order. A playlist row accepts library tracks dropped on it (LibraryModel's track-id
// payload) and is renamed by editing its text.
//
// Lives on the GUI thread and reloads on the store's playlistsChanged(); there are tens
// of playlists, not thousands, so a reset is cheap. Views keep their current row by id
// (playlistId()).
class PlaylistListModel : public QAbstractListModel {
    Q_OBJECT

public:
    static constexpr int kAllTracksRow = 0;
    static constexpr int kPlaylistIdRole = Qt::UserRole + 1; // 0 on the "All tracks" row
    static constexpr int kEntryCountRole = Qt::UserRole + 2;

    explicit PlaylistListModel(LibraryStore *store, QObject *parent = nullptr);

    void reload();
    [[nodiscard]] qint64 playlistId(int row) const;
    // -1 when there is no such playlist; kAllTracksRow for 0.
    [[nodiscard]] int rowOf(qint64 playlistId) const;
    [[nodiscard]] int playlistCount() const { return int(m_rows.size()); }

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QStringList mimeTypes() const override;
    Qt::DropActions supportedDropActions() const override;
    bool canDropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                         const QModelIndex &parent) const override;
    bool dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                      const QModelIndex &parent) override;

private:
    struct Row {
        qint64 id = 0;
        QString name;
        qsizetype entryCount = 0;
    };
    // The playlist a drop lands on: the row under the cursor, never between rows.
    [[nodiscard]] qint64 dropTarget(int row, const QModelIndex &parent) const;

    LibraryStore *m_store;
    QList<Row> m_rows; // playlists only; the model's row is this index + 1
};
