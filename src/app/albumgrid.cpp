#include "app/albumgrid.h"

#include "app/albumgridmodel.h"
#include "app/application.h"
#include "app/covercache.h"
#include "app/libraryfiltermodel.h"
#include "app/librarymodel.h"
#include "playback/player.h"

#include <QAction>
#include <QTimer>

AlbumGrid::AlbumGrid(Application &app, LibraryModel &tracks, LibraryFilterModel &shown, QWidget *parent)
    : QListView(parent)
    , m_app(app)
    , m_tracks(tracks)
    , m_shown(shown)
{
    setObjectName(QStringLiteral("albumGrid"));
    m_covers = new CoverCache(QString(), this);
    m_albums = new AlbumGridModel(*m_covers, this);
    setModel(m_albums);
    setViewMode(QListView::IconMode);
    setResizeMode(QListView::Adjust);
    setMovement(QListView::Static);
    setUniformItemSizes(true);
    setWordWrap(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    const int cover = AlbumGridModel::kCoverPixels / 2 + 32;
    setIconSize(QSize(cover, cover));
    setGridSize(QSize(cover + 24, cover + fontMetrics().height() * 2 + 16));
    setSpacing(6);

    m_regroup = new QTimer(this);
    m_regroup->setSingleShot(true);
    m_regroup->setInterval(0);
    connect(m_regroup, &QTimer::timeout, this, &AlbumGrid::regroup);
    const auto later = [this] {
        if (isVisible())
            m_regroup->start();
    };
    connect(&m_shown, &QAbstractItemModel::modelReset, this, later);
    connect(&m_shown, &QAbstractItemModel::rowsInserted, this, later);
    connect(&m_shown, &QAbstractItemModel::rowsRemoved, this, later);
    connect(&m_shown, &QAbstractItemModel::layoutChanged, this, later);
    connect(&m_shown, &QAbstractItemModel::dataChanged, this, later);

    connect(this, &QAbstractItemView::activated, this, [this](const QModelIndex &index) { playAlbum(index.row()); });
    auto *play = new QAction(this);
    play->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
    play->setShortcutContext(Qt::WidgetShortcut);
    addAction(play);
    connect(play, &QAction::triggered, this, [this] { playAlbum(currentIndex().row()); });
}

AlbumGrid::~AlbumGrid() = default;

void AlbumGrid::showEvent(QShowEvent *event)
{
    QListView::showEvent(event);
    regroup();
}

void AlbumGrid::regroup()
{
    QList<Track> tracks;
    const int rows = m_shown.rowCount();
    tracks.reserve(rows);
    for (int row = 0; row < rows; ++row) {
        if (const Track *track = m_tracks.trackAt(m_shown.mapToSource(m_shown.index(row, 0)).row()))
            tracks << *track;
    }
    m_albums->setTracks(tracks);
}

void AlbumGrid::playAlbum(int row)
{
    if (const AlbumGrouping::Album *album = m_albums->albumAt(row))
        m_app.player().playQueue(album->tracks, 0);
}
