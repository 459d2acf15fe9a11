#include "app/playlistpane.h"

#include "app/playlistlistmodel.h"
#include "app/texts.h"
#include "library/librarystore.h"

#include <QHBoxLayout>
#include <QInputDialog>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QToolButton>
#include <QVBoxLayout>

PlaylistPane::PlaylistPane(LibraryStore *store, QWidget *parent)
    : QWidget(parent)
    , m_store(store)
{
    askName = [this](const QString &title, const QString &name) -> std::optional<QString> {
        bool ok = false;
        const QString text = QInputDialog::getText(this, title, tx("playlist.nameLabel"), QLineEdit::Normal, name, &ok);
        return ok ? std::optional<QString>(text) : std::nullopt;
    };
    confirm = [this](const QString &question) {
        return QMessageBox::question(this, tx("playlist.deleteTitle"), question,
                                     QMessageBox::Yes | QMessageBox::No, QMessageBox::No)
               == QMessageBox::Yes;
    };

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *heading = new QLabel(tx("playlist.heading"), this);
    heading->setStyleSheet(QStringLiteral("color: palette(placeholder-text); font-weight: bold;"));
    layout->addWidget(heading);

    m_model = new PlaylistListModel(store, this);
    m_list = new QListView(this);
    m_list->setModel(m_model);
    m_list->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    m_list->setDragDropMode(QAbstractItemView::DropOnly);
    m_list->setDropIndicatorShown(true);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    layout->addWidget(m_list, 1);

    auto *buttons = new QHBoxLayout;
    auto makeButton = [this, buttons](const char *text, const char *tip) {
        auto *button = new QToolButton(this);
        button->setText(QString::fromUtf8(text));
        button->setToolTip(tx(tip));
        buttons->addWidget(button);
        return button;
    };
    m_add = makeButton("+", "playlist.new");
    m_remove = makeButton("−", "playlist.delete");
    m_rename = makeButton("✎", "playlist.rename");
    buttons->addStretch();
    layout->addLayout(buttons);
    m_add->setEnabled(store != nullptr);

    connect(m_add, &QToolButton::clicked, this, [this] { (void)createPlaylist(); });
    connect(m_rename, &QToolButton::clicked, this, &PlaylistPane::renameCurrent);
    connect(m_remove, &QToolButton::clicked, this, &PlaylistPane::deleteCurrent);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex &index) {
        if (!index.isValid())
            return;
        const qint64 id = m_model->playlistId(index.row());
        const bool changed = id != m_current;
        m_current = id;
        updateButtons();
        if (changed)
            Q_EMIT currentPlaylistChanged(id);
    });
    // A reset (any playlist edit) forgets the current row: put it back, or fall back to
    // "All tracks" when the current playlist is gone.
    connect(m_model, &QAbstractItemModel::modelReset, this, [this] {
        const int row = m_model->rowOf(m_current);
        m_list->setCurrentIndex(m_model->index(row < 0 ? PlaylistListModel::kAllTracksRow : row));
    });
    connect(m_list, &QWidget::customContextMenuRequested, this, [this](const QPoint &pos) {
        if (!m_store)
            return;
        const QModelIndex index = m_list->indexAt(pos);
        if (index.isValid())
            m_list->setCurrentIndex(index);
        QMenu menu;
        menu.addAction(tx("playlist.new"), this, [this] { (void)createPlaylist(); });
        if (currentPlaylist() != 0) {
            menu.addAction(tx("playlist.rename"), this, &PlaylistPane::renameCurrent);
            menu.addAction(tx("playlist.delete"), this, &PlaylistPane::deleteCurrent);
        }
        menu.exec(m_list->viewport()->mapToGlobal(pos));
    });

    m_list->setCurrentIndex(m_model->index(PlaylistListModel::kAllTracksRow));
    updateButtons();
}

qint64 PlaylistPane::currentPlaylist() const
{
    return m_current;
}

void PlaylistPane::setCurrentPlaylist(qint64 playlistId)
{
    const int row = m_model->rowOf(playlistId);
    if (row >= 0)
        m_list->setCurrentIndex(m_model->index(row));
}

std::optional<qint64> PlaylistPane::createPlaylist(bool select)
{
    if (!m_store)
        return std::nullopt;
    const std::optional<QString> name = askName(tx("playlist.newTitle"), tx("playlist.defaultName"));
    if (!name || name->trimmed().isEmpty())
        return std::nullopt;
    const std::optional<qint64> id = m_store->insertPlaylist(Playlist(name->trimmed()));
    if (id && select)
        setCurrentPlaylist(*id);
    return id;
}

void PlaylistPane::renameCurrent()
{
    const int row = m_model->rowOf(m_current);
    if (!m_store || m_current == 0 || row < 0)
        return;
    const QString old = m_model->index(row).data().toString();
    const std::optional<QString> name = askName(tx("playlist.renameTitle"), old);
    if (name && !name->trimmed().isEmpty() && name->trimmed() != old)
        (void)m_store->renamePlaylist(m_current, name->trimmed());
}

void PlaylistPane::deleteCurrent()
{
    const int row = m_model->rowOf(m_current);
    if (!m_store || m_current == 0 || row < 0)
        return;
    const QString name = m_model->index(row).data().toString();
    if (confirm(Texts::text("playlist.deleteFormat").arg(name)))
        (void)m_store->removePlaylist(m_current);
}

void PlaylistPane::updateButtons()
{
    const bool playlist = m_store && m_current != 0;
    m_rename->setEnabled(playlist);
    m_remove->setEnabled(playlist);
}
