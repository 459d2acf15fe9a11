#pragma once

#include <QList>
#include <QUrl>
#include <QWidget>

#include <functional>

class AlbumGrid;
class Application;
class LibraryFilterModel;
class LibraryModel;
class PlaylistEntryModel;
class PlaylistPane;
class QAction;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTableView;
struct Track;

// The library: on the left "All tracks" and the playlists, on the right either every
// track as one sortable, filterable table with "show in folder" and "delete" (file and
// entry, after a confirmation), or the chosen playlist in its order, where entries are
// reordered (drag, move up/down) and removed. Tracks go into a playlist from their
// context menu or by dragging them onto it.
//
// Double-click or Enter plays from that row: the player's queue is what the view shows,
// in its order (the filtered and sorted table, or the playlist). A click on a track's star
// marks or unmarks it as a favourite, stored in the library at once.
//
// Lives on the GUI thread. The tracks are read when the page is first shown, not when
// the window is built.
class LibraryView : public QWidget {
    Q_OBJECT

public:
    explicit LibraryView(Application &app, QWidget *parent = nullptr);

    // Seams for tests: the confirmation question and the desktop's "open this folder".
    std::function<bool(const QString &question)> confirm;
    std::function<void(const QUrl &folder)> openFolder;

    [[nodiscard]] QList<Track> selectedTracks() const;
    void showSelectedInFolder();
    void deleteSelected();

    // The selected library tracks into a playlist, at its end.
    void addSelectedToPlaylist(qint64 playlistId);
    // Asks for a name (the pane's dialog) and puts the selected tracks in a new playlist.
    void addSelectedToNewPlaylist();
    // The selected entries of the shown playlist one place up (-1) or down (+1).
    void moveSelectedEntries(int delta);
    void removeSelectedEntries();
    [[nodiscard]] QList<int> selectedEntryRows() const;
    [[nodiscard]] bool showsPlaylist() const;

    // The shown tracks as the queue, started at `row` of the table.
    void playFromTableRow(int row);
    // The shown playlist's tracks as the queue, started at entry `row`. Entries that are
    // no longer in the library are left out; starting on one says so.
    void playFromPlaylistRow(int row);
    // Flips the favourite mark of the track at `row` of the table.
    void toggleFavorite(int row);

    QLineEdit *filterField() const { return m_filter; }
    QTableView *table() const { return m_table; }
    LibraryModel *model() const { return m_model; }
    LibraryFilterModel *filterModel() const { return m_proxy; }
    QLabel *countLabel() const { return m_count; }
    PlaylistPane *playlistPane() const { return m_pane; }
    QTableView *playlistTable() const { return m_playlistTable; }
    PlaylistEntryModel *playlistModel() const { return m_entries; }
    AlbumGrid *albumGrid() const { return m_albumGrid; }
    QPushButton *albumsToggle() const { return m_albumsToggle; }

protected:
    void showEvent(QShowEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void fitColumns();
    void showPlaylist(qint64 playlistId);
    void fillAddToPlaylistMenu(QMenu *menu);
    void refreshState();
    void keepSelection();
    void restoreSelection();

    Application &m_app;
    LibraryModel *m_model = nullptr;
    LibraryFilterModel *m_proxy = nullptr;
    PlaylistEntryModel *m_entries = nullptr;
    PlaylistPane *m_pane = nullptr;
    QLineEdit *m_filter = nullptr;
    QLabel *m_count = nullptr;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_empty = nullptr;
    QWidget *m_emptyPlaylist = nullptr;
    QTableView *m_table = nullptr;
    QTableView *m_playlistTable = nullptr;
    QSplitter *m_tracksSplit = nullptr; // the table and the album grid
    AlbumGrid *m_albumGrid = nullptr;
    QPushButton *m_albumsToggle = nullptr;
    QPushButton *m_showInFolder = nullptr;
    QPushButton *m_delete = nullptr;
    QPushButton *m_moveUpButton = nullptr;
    QPushButton *m_moveDownButton = nullptr;
    QPushButton *m_removeButton = nullptr;
    QAction *m_moveUp = nullptr;
    QAction *m_moveDown = nullptr;
    QAction *m_remove = nullptr;
    QAction *m_playTrack = nullptr;
    QAction *m_playEntry = nullptr;
    // Across a reset of the filtered table: the selected tracks and the current one (0: none).
    QList<qint64> m_keptSelection;
    qint64 m_keptCurrent = 0;
};
