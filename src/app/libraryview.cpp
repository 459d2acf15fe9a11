#include "app/libraryview.h"

#include "app/application.h"
#include "app/librarymodel.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "library/librarystore.h"

#include <QDesktopServices>
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
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

LibraryView::LibraryView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    confirm = [this](const QString &question) {
        return QMessageBox::question(this, tx("lib.deleteTitle"), question) == QMessageBox::Yes;
    };
    openFolder = [](const QUrl &folder) { QDesktopServices::openUrl(folder); };

    const UiKit::Page page = UiKit::makePage(this, tx("lib.title"));
    QVBoxLayout *layout = page.layout;
    m_count = page.count;

    m_filter = new QLineEdit(this);
    m_filter->setPlaceholderText(tx("lib.filterPlaceholder"));
    m_filter->setClearButtonEnabled(true);
    layout->addWidget(m_filter);

    m_model = new LibraryModel(app.library(), this);
    m_proxy = new LibraryFilterModel(this);
    m_proxy->setSourceModel(m_model);
    m_table = new QTableView(this);
    m_table->setModel(m_proxy);
    UiKit::configureTable(m_table);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(LibraryModel::DateAddedColumn, Qt::DescendingOrder);
    // Fixed row heights and no content-based column sizing: both would measure every row.
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    QHeaderView *header = m_table->horizontalHeader();
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setSectionResizeMode(LibraryModel::TitleColumn, QHeaderView::Stretch);
    header->resizeSection(LibraryModel::ArtistColumn, 170);
    header->resizeSection(LibraryModel::AlbumColumn, 150);
    header->resizeSection(LibraryModel::DurationColumn, 70);
    header->resizeSection(LibraryModel::StationColumn, 140);
    header->resizeSection(LibraryModel::DateAddedColumn, 130);
    header->resizeSection(LibraryModel::PlayCountColumn, 80);

    const bool available = app.library() != nullptr;
    m_empty = available ? UiKit::makeEmptyState(tx("lib.emptyTitle"), tx("lib.emptyHint"), this)
                        : UiKit::makeEmptyState(tx("lib.unavailable"), app.libraryError(), this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_table);
    m_stack->addWidget(m_empty);
    layout->addWidget(m_stack, 1);

    auto *buttons = new QHBoxLayout;
    m_showInFolder = new QPushButton(tx("lib.showInFolder"), this);
    m_delete = new QPushButton(tx("lib.delete"), this);
    buttons->addWidget(m_showInFolder);
    buttons->addWidget(m_delete);
    buttons->addStretch();
    layout->addLayout(buttons);

    connect(m_filter, &QLineEdit::textChanged, m_proxy, &LibraryFilterModel::setFilterText);
    connect(m_filter, &QLineEdit::textChanged, this, &LibraryView::refreshState);
    connect(m_model, &QAbstractItemModel::modelReset, this, &LibraryView::refreshState);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, &LibraryView::refreshState);
    connect(m_showInFolder, &QPushButton::clicked, this, &LibraryView::showSelectedInFolder);
    connect(m_delete, &QPushButton::clicked, this, &LibraryView::deleteSelected);
    connect(m_table, &QWidget::customContextMenuRequested, this, [this](const QPoint &pos) {
        if (selectedTracks().isEmpty())
            return;
        QMenu menu;
        menu.addAction(tx("lib.showInFolder"), this, &LibraryView::showSelectedInFolder);
        menu.addAction(tx("lib.delete"), this, &LibraryView::deleteSelected);
        menu.exec(m_table->viewport()->mapToGlobal(pos));
    });
    refreshState();
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

void LibraryView::refreshState()
{
    const int total = m_model->rowCount();
    const int shown = m_proxy->rowCount();
    if (total == shown)
        m_count->setText(total == 1 ? tx("lib.countOne") : Texts::text("lib.countFormat").arg(total));
    else
        m_count->setText(Texts::text("lib.shownFormat").arg(shown).arg(total));
    m_count->setVisible(total > 0);
    m_filter->setEnabled(total > 0 || !m_filter->text().isEmpty());
    m_stack->setCurrentWidget(total > 0 ? static_cast<QWidget *>(m_table) : m_empty);
    const bool selected = m_table->selectionModel()->hasSelection();
    m_showInFolder->setEnabled(selected);
    m_delete->setEnabled(selected);
}
