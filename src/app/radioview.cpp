#include "app/radioview.h"

#include "app/application.h"
#include "app/sessionlist.h"
#include "app/stationactionbar.h"
#include "app/stationtablemodel.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "stations/directoryapi.h"
#include "stations/favoritestations.h"
#include "stations/stationdirectory.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>

RadioView::RadioView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(UiKit::kPageMargin, UiKit::kPageMargin, UiKit::kPageMargin, UiKit::kPageMargin);
    layout->setSpacing(UiKit::kSpacing);
    layout->addWidget(UiKit::makeTitle(tx("radio.title"), this));

    auto *searchRow = new QHBoxLayout;
    m_search = new QLineEdit(this);
    m_search->setObjectName(QStringLiteral("radioSearch"));
    m_search->setPlaceholderText(tx("radio.searchPlaceholder"));
    m_search->setClearButtonEnabled(true);
    auto *random = new QPushButton(tx("radio.random"), this);
    random->setObjectName(QStringLiteral("randomButton"));
    auto *custom = new QPushButton(tx("radio.custom"), this);
    custom->setObjectName(QStringLiteral("customButton"));
    searchRow->addWidget(m_search, 1);
    searchRow->addWidget(random);
    searchRow->addWidget(custom);
    layout->addLayout(searchRow);

    auto *headingRow = new QHBoxLayout;
    m_heading = new QLabel(this);
    QFont headingFont = m_heading->font();
    headingFont.setBold(true);
    m_heading->setFont(headingFont);
    m_status = UiKit::makeHint(QString(), this);
    m_status->setWordWrap(false);
    headingRow->addWidget(m_heading);
    headingRow->addStretch();
    headingRow->addWidget(m_status);
    layout->addLayout(headingRow);

    m_model = new StationTableModel(this);
    m_table = new QTableView(this);
    m_table->setModel(m_model);
    UiKit::configureTable(m_table);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_empty = UiKit::makeEmptyState(tx("radio.emptyTitle"), tx("radio.emptyHint"), this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_table);
    m_stack->addWidget(m_empty);
    layout->addWidget(m_stack, 1);

    m_actions = new StationActionBar(app, this);
    layout->addWidget(m_actions);

    StationDirectory &directory = app.directory();
    connect(m_search, &QLineEdit::textChanged, this, [this](const QString &text) {
        m_source = Source::Directory;
        m_single.reset();
        m_app.directory().search(text);
        refreshList();
    });
    connect(random, &QPushButton::clicked, this, &RadioView::pickRandomStation);
    connect(custom, &QPushButton::clicked, this, &RadioView::askForCustomStation);
    connect(&directory, &StationDirectory::resultsChanged, this, &RadioView::refreshList);
    connect(&directory, &StationDirectory::recommendationsChanged, this, &RadioView::refreshList);
    connect(&directory, &StationDirectory::isSearchingChanged, this, &RadioView::refreshList);
    connect(&directory, &StationDirectory::isLoadingMoreChanged, this, &RadioView::refreshList);
    connect(&directory, &StationDirectory::icyStatusChanged, m_model, &StationTableModel::setIcy);
    connect(&app.favorites(), &FavoriteStations::changed, this,
            [this] { m_model->setFavoriteIds(m_app.favorites().ids()); });
    connect(&app.recorder(), &SessionList::sessionsChanged, this,
            [this] { m_model->setRecordingIds(m_app.recorder().stationIds()); });
    connect(m_table->verticalScrollBar(), &QScrollBar::valueChanged, this, &RadioView::maybeLoadMore);
    connect(m_table->verticalScrollBar(), &QScrollBar::rangeChanged, this, &RadioView::maybeLoadMore);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, &RadioView::selectionChanged);
    connect(m_model, &QAbstractItemModel::modelReset, this, &RadioView::selectionChanged);
    connect(m_table, &QTableView::doubleClicked, this, [this](const QModelIndex &index) {
        if (const Station *station = m_model->stationAt(index.row()))
            StationActionBar::toggleRecording(m_app, *station);
    });
    connect(m_table, &QWidget::customContextMenuRequested, this, [this](const QPoint &pos) {
        const Station *station = m_model->stationAt(m_table->indexAt(pos).row());
        if (!station)
            return;
        QMenu menu;
        StationActionBar::addActions(menu, m_app, *station);
        menu.exec(m_table->viewport()->mapToGlobal(pos));
    });

    m_model->setFavoriteIds(app.favorites().ids());
    m_model->setIcyStatus(directory.icyStatus());
    m_model->setRecordingIds(app.recorder().stationIds());
    refreshList();
}

void RadioView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // The start page is filled on first sight only; loadRecommendations() runs once.
    m_app.directory().loadRecommendations();
    QTimer::singleShot(0, this, &RadioView::maybeLoadMore);
}

std::optional<Station> RadioView::selectedStation() const
{
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    if (rows.isEmpty())
        return std::nullopt;
    const Station *station = m_model->stationAt(rows.first().row());
    return station ? std::optional<Station>(*station) : std::nullopt;
}

void RadioView::selectionChanged()
{
    const std::optional<Station> station = selectedStation();
    m_actions->setStation(station);
    Q_EMIT currentStationChanged(station);
}

void RadioView::refreshList()
{
    StationDirectory &directory = m_app.directory();
    const QString query = m_search->text().trimmed();
    QString status;
    if (m_source != Source::Directory && m_single) {
        m_heading->setText(m_source == Source::Random ? tx("radio.randomPick") : tx("radio.customPick"));
        m_model->setStations({*m_single});
    } else if (query.isEmpty()) {
        m_heading->setText(tx("radio.recommendations"));
        m_model->setStations(directory.recommendations());
    } else {
        m_heading->setText(Texts::text("radio.resultsFormat").arg(query));
        m_model->setStations(directory.results());
        if (directory.isSearching())
            status = tx("radio.searching");
        else if (directory.isLoadingMore())
            status = tx("radio.loadingMore");
    }
    m_status->setText(status);

    if (m_model->rowCount() > 0) {
        m_stack->setCurrentWidget(m_table);
    } else {
        if (!query.isEmpty() && !directory.isSearching())
            UiKit::setEmptyStateTexts(m_empty, Texts::text("radio.noResultsFormat").arg(query), tx("radio.emptyHint"));
        else
            UiKit::setEmptyStateTexts(m_empty, tx("radio.emptyTitle"), tx("radio.emptyHint"));
        m_stack->setCurrentWidget(m_empty);
    }
    // A first page shorter than the view shows its last row at once.
    QTimer::singleShot(0, this, &RadioView::maybeLoadMore);
}

void RadioView::maybeLoadMore()
{
    StationDirectory &directory = m_app.directory();
    if (!isVisible() || m_source != Source::Directory || m_search->text().trimmed().isEmpty())
        return;
    if (!directory.hasMore() || directory.isLoadingMore() || directory.isSearching() || m_model->rowCount() == 0)
        return;
    const int bottomRow = m_table->rowAt(m_table->viewport()->height() - 1);
    // -1: the rows end above the bottom edge, so the last one is in view.
    if (bottomRow == -1 || bottomRow >= m_model->rowCount() - 1)
        directory.loadMore();
}

void RadioView::pickRandomStation()
{
    m_randomTransfer.cancel();
    m_randomTransfer = DirectoryApi::randomStation(m_app.http(), m_app.directoryBase(), QString(), this,
                                                   [this](std::optional<Station> station) {
                                                       if (station)
                                                           showSingle(Source::Random, *station);
                                                   });
}

void RadioView::showCustomStation(const QString &streamUrl, const QString &name)
{
    const QString url = streamUrl.trimmed();
    if (url.isEmpty())
        return;
    showSingle(Source::Custom, Station::custom(url, name.trimmed()));
}

void RadioView::showSingle(Source source, const Station &station)
{
    m_source = source;
    m_single = station;
    refreshList();
    m_table->selectRow(0);
}

void RadioView::askForCustomStation()
{
    QDialog dialog(this);
    dialog.setWindowTitle(tx("radio.customTitle"));
    auto *form = new QFormLayout(&dialog);
    auto *url = new QLineEdit(&dialog);
    url->setMinimumWidth(360);
    auto *name = new QLineEdit(&dialog);
    form->addRow(tx("radio.customUrl"), url);
    form->addRow(tx("radio.customName"), name);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    if (dialog.exec() == QDialog::Accepted)
        showCustomStation(url->text(), name->text());
}
