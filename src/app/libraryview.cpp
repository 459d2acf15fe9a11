#include "app/libraryview.h"

#include "app/albumgrid.h"
#include "app/application.h"
#include "app/columnfit.h"
#include "app/flowlayout.h"
#include "app/libraryfiltermodel.h"
#include "app/librarymodel.h"
#include "app/playlistedits.h"
#include "app/playlistentrymodel.h"
#include "app/playlistlistmodel.h"
#include "app/playlistorder.h"
#include "app/playlistpane.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "library/librarystore.h"
#include "playback/player.h"

#include <QAction>
#include <QDesktopServices>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>

LibraryView::LibraryView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    confirm = [this](const QString &question) {
        // No is the default: Enter pressed out of habit keeps the files.
        return QMessageBox::question(this, tx("lib.deleteTitle"), question, QMessageBox::Yes | QMessageBox::No,
                                     QMessageBox::No)
               == QMessageBox::Yes;
    };
    openFolder = [](const QUrl &folder) { QDesktopServices::openUrl(folder); };

    const UiKit::Page page = UiKit::makePage(this, tx("lib.title"));
    m_count = page.count;

    auto *splitter = new QSplitter(Qt::Horizontal, this);
    splitter->setChildrenCollapsible(false);
    page.layout->addWidget(splitter, 1);
    m_pane = new PlaylistPane(app.library(), splitter);
    m_pane->setMinimumWidth(150);
    auto *right = new QWidget(splitter);
    auto *layout = new QVBoxLayout(right);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(UiKit::kSpacing);
    splitter->addWidget(m_pane);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({190, 900});

    m_filter = new QLineEdit(right);
    m_filter->setPlaceholderText(tx("lib.filterPlaceholder"));
    m_filter->setClearButtonEnabled(true);
    layout->addWidget(m_filter);

    m_model = new LibraryModel(app.library(), this);
    m_proxy = new LibraryFilterModel(this);
    m_proxy->setSourceModel(m_model);
    m_table = new QTableView(right);
    m_table->setModel(m_proxy);
    UiKit::configureTable(m_table);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(LibraryModel::DateAddedColumn, Qt::DescendingOrder);
    m_table->setDragEnabled(true);
    m_table->setDragDropMode(QAbstractItemView::DragOnly);
    // Fixed row heights and no content-based column sizing: both would measure every row.
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    // The columns are fitted to the table's width (fitColumns()), so the title keeps the
    // widest share and a narrow window drops columns instead of scrolling sideways.
    QHeaderView *header = m_table->horizontalHeader();
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setSectionResizeMode(LibraryModel::FavoriteColumn, QHeaderView::Fixed);
    header->setStretchLastSection(false);
    header->setMinimumSectionSize(24);
    m_table->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_table->viewport()->installEventFilter(this);

    m_entries = new PlaylistEntryModel(app.library(), this);
    m_playlistTable = new QTableView(right);
    m_playlistTable->setModel(m_entries);
    UiKit::configureTable(m_playlistTable);
    m_playlistTable->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_playlistTable->setDragDropMode(QAbstractItemView::InternalMove);
    m_playlistTable->setDragDropOverwriteMode(false);
    m_playlistTable->setDropIndicatorShown(true);
    m_playlistTable->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_playlistTable->horizontalHeader()->resizeSection(PlaylistEntryModel::ArtistColumn, 200);
    m_playlistTable->horizontalHeader()->resizeSection(PlaylistEntryModel::DurationColumn, 70);

    const bool available = app.library() != nullptr;
    m_empty = available ? UiKit::makeEmptyState(tx("lib.emptyTitle"), tx("lib.emptyHint"), right)
                        : UiKit::makeEmptyState(tx("lib.unavailable"), app.libraryError(), right);
    m_emptyPlaylist = UiKit::makeEmptyState(tx("playlist.emptyTitle"), tx("playlist.emptyHint"), right);
    // The album grid stands beside the table, hidden until asked for.
    m_tracksSplit = new QSplitter(Qt::Horizontal, right);
    m_tracksSplit->setChildrenCollapsible(false);
    m_tracksSplit->addWidget(m_table);
    m_albumGrid = new AlbumGrid(app, *m_model, *m_proxy, m_tracksSplit);
    m_albumGrid->setMinimumWidth(180);
    m_albumGrid->hide();
    m_tracksSplit->addWidget(m_albumGrid);
    m_albumsToggle = new QPushButton(tx("lib.albums"), this);
    m_albumsToggle->setObjectName(QStringLiteral("albumsToggle"));
    m_albumsToggle->setToolTip(tx("lib.albumsTip"));
    m_albumsToggle->setCheckable(true);
    connect(m_albumsToggle, &QPushButton::toggled, m_albumGrid, &QWidget::setVisible);
    page.titleRow->addWidget(m_albumsToggle);
    m_stack = new QStackedWidget(right);
    for (QWidget *widget : {static_cast<QWidget *>(m_tracksSplit), m_empty, static_cast<QWidget *>(m_playlistTable),
                            m_emptyPlaylist})
        m_stack->addWidget(widget);
    layout->addWidget(m_stack, 1);

    auto addAction = [this](const char *key, const QKeySequence &shortcut, auto slot) {
        auto *action = new QAction(tx(key), this);
        action->setShortcut(shortcut);
        action->setShortcutContext(Qt::WidgetShortcut);
        m_playlistTable->addAction(action);
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    m_moveUp = addAction("playlist.moveUp", QKeySequence(Qt::ALT | Qt::Key_Up), [this] { moveSelectedEntries(-1); });
    m_moveDown =
        addAction("playlist.moveDown", QKeySequence(Qt::ALT | Qt::Key_Down), [this] { moveSelectedEntries(1); });
    m_remove = addAction("playlist.remove", QKeySequence::Delete, [this] { removeSelectedEntries(); });

    // Enter plays the current row; Return as well, it is the same key on most keyboards.
    // A double-click on the star is two clicks on it, not a wish to play.
    auto playAction = [this](QTableView *table, int starColumn, auto play) {
        auto *action = new QAction(tx("player.play"), this);
        action->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
        action->setShortcutContext(Qt::WidgetShortcut);
        table->addAction(action);
        connect(action, &QAction::triggered, this, [table, play] {
            if (const QModelIndex current = table->currentIndex(); current.isValid())
                play(current.row());
        });
        connect(table, &QAbstractItemView::doubleClicked, this, [starColumn, play](const QModelIndex &index) {
            if (index.column() != starColumn)
                play(index.row());
        });
        return action;
    };
    auto *deleteTracks = new QAction(tx("lib.delete"), this);
    deleteTracks->setShortcut(QKeySequence::Delete);
    deleteTracks->setShortcutContext(Qt::WidgetShortcut);
    m_table->addAction(deleteTracks);
    connect(deleteTracks, &QAction::triggered, this, &LibraryView::deleteSelected);
    m_playTrack = playAction(m_table, LibraryModel::FavoriteColumn, [this](int row) { playFromTableRow(row); });
    m_playEntry = playAction(m_playlistTable, -1, [this](int row) { playFromPlaylistRow(row); });
    connect(m_table, &QAbstractItemView::clicked, this, [this](const QModelIndex &index) {
        if (index.column() == LibraryModel::FavoriteColumn)
            toggleFavorite(index.row());
    });
    Player &player = app.player();
    // The player raised a play count; the store may announce it too, and an update with
    // the same values changes nothing.
    connect(&player, &Player::trackPlayed, m_model, &LibraryModel::updateTrack);
    connect(&player, &Player::currentTrackChanged, m_model,
            [this](const std::optional<Track> &track, int) { m_model->setPlayingTrack(track ? track->id : 0); });

    auto *buttons = new FlowLayout;
    m_showInFolder = new QPushButton(tx("lib.showInFolder"), right);
    m_delete = new QPushButton(tx("lib.delete"), right);
    m_moveUpButton = new QPushButton(m_moveUp->text(), right);
    m_moveDownButton = new QPushButton(m_moveDown->text(), right);
    m_removeButton = new QPushButton(m_remove->text(), right);
    for (QPushButton *button : {m_showInFolder, m_delete, m_moveUpButton, m_moveDownButton, m_removeButton})
        buttons->addWidget(button);
    layout->addLayout(buttons);

    connect(m_filter, &QLineEdit::textChanged, m_proxy, &LibraryFilterModel::setFilterText);
    // A new filter text resets the table; the tracks selected before stay selected where
    // they are still shown.
    connect(m_proxy, &QAbstractItemModel::modelAboutToBeReset, this, &LibraryView::keepSelection);
    connect(m_proxy, &QAbstractItemModel::modelReset, this, &LibraryView::restoreSelection);
    connect(m_filter, &QLineEdit::textChanged, this, &LibraryView::refreshState);
    // The source model, not the proxy: a filter change arrives as many runs of removed
    // rows, and the count is refreshed once for it through textChanged.
    for (QAbstractItemModel *model : {static_cast<QAbstractItemModel *>(m_model), static_cast<QAbstractItemModel *>(m_entries)}) {
        connect(model, &QAbstractItemModel::modelReset, this, &LibraryView::refreshState);
        connect(model, &QAbstractItemModel::rowsInserted, this, &LibraryView::refreshState);
        connect(model, &QAbstractItemModel::rowsRemoved, this, &LibraryView::refreshState);
        connect(model, &QAbstractItemModel::layoutChanged, this, &LibraryView::refreshState);
    }
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, &LibraryView::refreshState);
    connect(m_playlistTable->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &LibraryView::refreshState);
    connect(m_showInFolder, &QPushButton::clicked, this, &LibraryView::showSelectedInFolder);
    connect(m_delete, &QPushButton::clicked, this, &LibraryView::deleteSelected);
    connect(m_moveUpButton, &QPushButton::clicked, m_moveUp, &QAction::trigger);
    connect(m_moveDownButton, &QPushButton::clicked, m_moveDown, &QAction::trigger);
    connect(m_removeButton, &QPushButton::clicked, m_remove, &QAction::trigger);
    connect(m_pane, &PlaylistPane::currentPlaylistChanged, this, &LibraryView::showPlaylist);
    connect(m_table, &QWidget::customContextMenuRequested, this, [this](const QPoint &pos) {
        if (selectedTracks().isEmpty())
            return;
        QMenu menu;
        menu.addAction(m_playTrack);
        menu.addSeparator();
        menu.addAction(tx("lib.showInFolder"), this, &LibraryView::showSelectedInFolder);
        fillAddToPlaylistMenu(menu.addMenu(tx("library.addToPlaylist")));
        menu.addSeparator();
        menu.addAction(tx("lib.delete"), this, &LibraryView::deleteSelected);
        menu.exec(m_table->viewport()->mapToGlobal(pos));
    });
    connect(m_playlistTable, &QWidget::customContextMenuRequested, this, [this](const QPoint &pos) {
        if (selectedEntryRows().isEmpty())
            return;
        QMenu menu;
        menu.addAction(m_playEntry);
        menu.addSeparator();
        menu.addActions({m_moveUp, m_moveDown});
        menu.addSeparator();
        menu.addAction(m_remove);
        menu.exec(m_playlistTable->viewport()->mapToGlobal(pos));
    });
    refreshState();
}

bool LibraryView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_table->viewport() && event->type() == QEvent::Resize)
        fitColumns();
    return QWidget::eventFilter(watched, event);
}

void LibraryView::fitColumns()
{
    // In column order: width below which it is dropped, share of the rest, what stays longest.
    constexpr ColumnFit::Column kColumns[LibraryModel::ColumnCount] = {
        {30, 0, 9}, // favourite star
        {140, 8, 10}, // title
        {90, 4, 8}, // artist
        {80, 3, 4}, // album
        {60, 0, 7}, // duration
        {80, 2, 3}, // station
        {110, 1, 5}, // date added
        {70, 0, 2}, // plays
    };
    const QList<int> widths = ColumnFit::fit(kColumns, m_table->viewport()->width());
    QHeaderView *header = m_table->horizontalHeader();
    for (int column = 0; column < widths.size(); ++column) {
        header->setSectionHidden(column, widths[column] == 0);
        if (widths[column] > 0)
            header->resizeSection(column, widths[column]);
    }
}

void LibraryView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (!m_model->isLoaded()) {
        m_model->load();
        refreshState();
    }
}

bool LibraryView::showsPlaylist() const
{
    return m_entries->playlistId() != 0;
}

void LibraryView::showPlaylist(qint64 playlistId)
{
    m_entries->setPlaylist(playlistId);
    m_filter->setVisible(playlistId == 0);
    refreshState();
}

void LibraryView::fillAddToPlaylistMenu(QMenu *menu)
{
    menu->addAction(tx("playlist.new"), this, &LibraryView::addSelectedToNewPlaylist);
    const PlaylistListModel *playlists = m_pane->model();
    if (playlists->playlistCount() > 0)
        menu->addSeparator();
    for (int row = PlaylistListModel::kAllTracksRow + 1; row < playlists->rowCount(); ++row) {
        const qint64 id = playlists->playlistId(row);
        menu->addAction(playlists->index(row).data().toString(), this, [this, id] { addSelectedToPlaylist(id); });
    }
}

void LibraryView::keepSelection()
{
    m_keptSelection.clear();
    m_keptCurrent = 0;
    QItemSelectionModel *selection = m_table->selectionModel();
    // Whole rows are selected: the ranges name them without visiting every cell.
    for (const QItemSelectionRange &range : selection->selection()) {
        for (int row = range.top(); row <= range.bottom(); ++row) {
            if (const Track *track = m_model->trackAt(m_proxy->mapToSource(m_proxy->index(row, 0)).row()))
                m_keptSelection << track->id;
        }
    }
    if (const Track *track = m_model->trackAt(m_proxy->mapToSource(selection->currentIndex()).row()))
        m_keptCurrent = track->id;
}

void LibraryView::restoreSelection()
{
    auto rowOf = [this](qint64 trackId) {
        return m_proxy->mapFromSource(m_model->index(m_model->rowOf(trackId), 0)).row();
    };
    QList<int> rows;
    for (qint64 id : std::as_const(m_keptSelection)) {
        if (const int row = rowOf(id); row >= 0)
            rows << row;
    }
    std::sort(rows.begin(), rows.end());
    QItemSelection selection;
    const int lastColumn = m_proxy->columnCount() - 1;
    for (qsizetype i = 0; i < rows.size();) {
        qsizetype end = i + 1;
        while (end < rows.size() && rows[end] <= rows[end - 1] + 1)
            ++end;
        selection.select(m_proxy->index(rows[i], 0), m_proxy->index(rows[end - 1], lastColumn));
        i = end;
    }
    QItemSelectionModel *model = m_table->selectionModel();
    if (const int current = m_keptCurrent ? rowOf(m_keptCurrent) : -1; current >= 0)
        model->setCurrentIndex(m_proxy->index(current, 0), QItemSelectionModel::NoUpdate);
    if (!selection.isEmpty())
        model->select(selection, QItemSelectionModel::ClearAndSelect);
    m_keptSelection.clear();
    m_keptCurrent = 0;
}

QList<Track> LibraryView::selectedTracks() const
{
    QList<Track> tracks;
    for (const QModelIndex &index : m_table->selectionModel()->selectedRows()) {
        if (const Track *track = m_model->trackAt(m_proxy->mapToSource(index).row()))
            tracks << *track;
    }
    return tracks;
}

void LibraryView::showSelectedInFolder()
{
    const QList<Track> tracks = selectedTracks();
    if (tracks.isEmpty() || !tracks.first().filePath)
        return;
    openFolder(QUrl::fromLocalFile(QFileInfo(*tracks.first().filePath).absolutePath()));
}

void LibraryView::deleteSelected()
{
    LibraryStore *library = m_app.library();
    const QList<Track> tracks = selectedTracks();
    if (!library || tracks.isEmpty())
        return;
    const QString question = tracks.size() == 1
                                 ? Texts::text("lib.deleteOneFormat").arg(tracks.first().title)
                                 : Texts::text("lib.deleteManyFormat").arg(tracks.size());
    if (!confirm(question))
        return;
    for (const Track &track : tracks) {
        // The entry goes only with its file: an entry whose file could not be deleted
        // would otherwise leave an orphan the user can no longer find.
        if (track.filePath && QFileInfo::exists(*track.filePath) && !QFile::remove(*track.filePath))
            continue;
        (void)library->remove(track.id);
    }
}

void LibraryView::addSelectedToPlaylist(qint64 playlistId)
{
    LibraryStore *library = m_app.library();
    QList<qint64> ids;
    // In the order the table shows them, not the order they were clicked.
    QModelIndexList rows = m_table->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end(), [](const QModelIndex &a, const QModelIndex &b) { return a.row() < b.row(); });
    for (const QModelIndex &index : rows) {
        if (const Track *track = m_model->trackAt(m_proxy->mapToSource(index).row()))
            ids << track->id;
    }
    if (library && !ids.isEmpty())
        (void)PlaylistEdits::addTracks(*library, playlistId, ids);
}

void LibraryView::addSelectedToNewPlaylist()
{
    if (selectedTracks().isEmpty())
        return;
    if (const std::optional<qint64> id = m_pane->createPlaylist(false))
        addSelectedToPlaylist(*id);
}

QList<int> LibraryView::selectedEntryRows() const
{
    QList<int> rows;
    for (const QModelIndex &index : m_playlistTable->selectionModel()->selectedRows())
        rows << index.row();
    std::sort(rows.begin(), rows.end());
    return rows;
}

void LibraryView::moveSelectedEntries(int delta)
{
    LibraryStore *library = m_app.library();
    const QList<int> rows = selectedEntryRows();
    if (!library || !showsPlaylist() || rows.isEmpty())
        return;
    // The model rearranges its rows as a layout change, so the selection moves along.
    (void)PlaylistEdits::reorder(*library, m_entries->playlistId(), [&](const QList<qint64> &order) {
        return PlaylistOrder::shiftRows(order, rows, delta);
    });
}

void LibraryView::removeSelectedEntries()
{
    LibraryStore *library = m_app.library();
    QList<qint64> ids;
    for (int row : selectedEntryRows()) {
        if (const PlaylistEntry *entry = m_entries->entryAt(row))
            ids << entry->id;
    }
    if (!library)
        return;
    for (qint64 id : ids)
        (void)library->removeEntry(id);
}

void LibraryView::playFromTableRow(int row)
{
    const int rows = m_proxy->rowCount();
    if (row < 0 || row >= rows)
        return;
    QList<Track> queue;
    queue.reserve(rows);
    for (int shown = 0; shown < rows; ++shown) {
        if (const Track *track = m_model->trackAt(m_proxy->mapToSource(m_proxy->index(shown, 0)).row()))
            queue << *track;
    }
    m_app.player().playQueue(queue, row);
}

void LibraryView::playFromPlaylistRow(int row)
{
    const PlaylistEntry *chosen = m_entries->entryAt(row);
    if (!chosen)
        return;
    LibraryStore *library = m_app.library();
    QList<Track> queue;
    int start = -1;
    for (int i = 0; i < m_entries->rowCount(); ++i) {
        const PlaylistEntry *entry = m_entries->entryAt(i);
        if (!entry->linkedTrack)
            continue;
        // The table is read when the page is shown; a playlist may be played before that.
        const Track *listed = m_model->isLoaded() ? m_model->trackAt(m_model->rowOf(*entry->linkedTrack)) : nullptr;
        std::optional<Track> track = listed ? std::optional<Track>(*listed) : std::nullopt;
        if (!track && library && !m_model->isLoaded())
            track = library->track(*entry->linkedTrack);
        if (!track)
            continue;
        if (i == row)
            start = int(queue.size());
        queue << *track;
    }
    if (start < 0) {
        m_app.reportProblem(chosen->title + QStringLiteral(": ") + tx("playlist.notInLibrary"));
        return;
    }
    m_app.player().playQueue(queue, start);
}

void LibraryView::toggleFavorite(int row)
{
    LibraryStore *library = m_app.library();
    const Track *shown = m_model->trackAt(m_proxy->mapToSource(m_proxy->index(row, 0)).row());
    if (!library || !shown)
        return;
    Track track = *shown;
    track.isFavorite = !track.isFavorite;
    // The row follows the store's announcement, so it never shows a mark that was not saved.
    if (!library->save(track))
        m_app.reportProblem(track.title + QStringLiteral(": ") + library->lastError());
}

void LibraryView::refreshState()
{
    const bool playlist = showsPlaylist();
    if (playlist) {
        const int entries = m_entries->rowCount();
        m_count->setText(entries == 1 ? tx("lib.countOne") : Texts::text("lib.countFormat").arg(entries));
        m_count->setVisible(true);
        m_stack->setCurrentWidget(entries > 0 ? static_cast<QWidget *>(m_playlistTable) : m_emptyPlaylist);
    } else {
        const int total = m_model->rowCount();
        const int shown = m_proxy->rowCount();
        if (total == shown)
            m_count->setText(total == 1 ? tx("lib.countOne") : Texts::text("lib.countFormat").arg(total));
        else
            m_count->setText(Texts::text("lib.shownFormat").arg(shown).arg(total));
        m_count->setVisible(total > 0);
        m_filter->setEnabled(total > 0 || !m_filter->text().isEmpty());
        m_stack->setCurrentWidget(total > 0 || !m_model->isLoaded() ? static_cast<QWidget *>(m_tracksSplit) : m_empty);
    }
    const bool tracksSelected = !playlist && m_table->selectionModel()->hasSelection();
    m_showInFolder->setEnabled(tracksSelected);
    m_delete->setEnabled(tracksSelected);
    const QList<int> rows = playlist ? selectedEntryRows() : QList<int>();
    m_moveUp->setEnabled(!rows.isEmpty() && rows.last() >= rows.size());
    m_moveDown->setEnabled(!rows.isEmpty() && rows.first() < m_entries->rowCount() - rows.size());
    m_remove->setEnabled(!rows.isEmpty());
    for (QWidget *button : {static_cast<QWidget *>(m_showInFolder), static_cast<QWidget *>(m_delete),
                            static_cast<QWidget *>(m_albumsToggle)})
        button->setVisible(!playlist);
    for (QPushButton *button : {m_moveUpButton, m_moveDownButton, m_removeButton})
        button->setVisible(playlist);
    m_moveUpButton->setEnabled(m_moveUp->isEnabled());
    m_moveDownButton->setEnabled(m_moveDown->isEnabled());
    m_removeButton->setEnabled(m_remove->isEnabled());
}
