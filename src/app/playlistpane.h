#pragma once

#include <QWidget>

#include <functional>
#include <optional>

class LibraryStore;
class PlaylistListModel;
class QListView;
class QToolButton;

// The library's left column: "All tracks" and the playlists, with buttons and a context
// menu to create, rename and delete playlists. Library tracks dropped on a playlist are
// added to it.
//
// Lives on the GUI thread; `store` may be null (the library could not be opened), then
// the pane shows only "All tracks".
class PlaylistPane : public QWidget {
    Q_OBJECT

public:
    explicit PlaylistPane(LibraryStore *store, QWidget *parent = nullptr);

    // Seams for tests: the name dialog (nothing when cancelled) and the delete question.
    std::function<std::optional<QString>(const QString &title, const QString &name)> askName;
    std::function<bool(const QString &question)> confirm;

    // 0 for "All tracks".
    [[nodiscard]] qint64 currentPlaylist() const;
    void setCurrentPlaylist(qint64 playlistId);

    // Asks for a name and creates the playlist; it becomes the current one unless
    // `select` is false. Its id, or nothing when cancelled or refused.
    std::optional<qint64> createPlaylist(bool select = true);
    void renameCurrent();
    void deleteCurrent();

    PlaylistListModel *model() const { return m_model; }
    QListView *list() const { return m_list; }

Q_SIGNALS:
    void currentPlaylistChanged(qint64 playlistId);

private:
    void updateButtons();

    LibraryStore *m_store;
    PlaylistListModel *m_model = nullptr;
    QListView *m_list = nullptr;
    QToolButton *m_add = nullptr;
    QToolButton *m_rename = nullptr;
    QToolButton *m_remove = nullptr;
    qint64 m_current = 0; // kept across the model's resets
};
