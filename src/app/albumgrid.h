#pragma once

#include <QListView>

class AlbumGridModel;
class Application;
class CoverCache;
class LibraryFilterModel;
class LibraryModel;
class QTimer;

// Albums as tiles of covers beside the library table: the tracks the table shows (its
// filter and order), grouped by album. A double click or Enter plays the album.
//
// Lives on the GUI thread. It regroups only while it is visible, once per turn of the
// event loop however many rows changed.
class AlbumGrid : public QListView {
    Q_OBJECT

public:
    AlbumGrid(Application &app, LibraryModel &tracks, LibraryFilterModel &shown, QWidget *parent = nullptr);
    ~AlbumGrid() override;

    AlbumGridModel *albums() const { return m_albums; }
    // Plays the album at `row` from its first track.
    void playAlbum(int row);

protected:
    void showEvent(QShowEvent *event) override;

private:
    void regroup();

    Application &m_app;
    LibraryModel &m_tracks;
    LibraryFilterModel &m_shown;
    CoverCache *m_covers = nullptr;
    AlbumGridModel *m_albums = nullptr;
    QTimer *m_regroup = nullptr;
};
