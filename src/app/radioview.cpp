#include "app/radioview.h"

#include "app/application.h"
#include "app/stationactionbar.h"
#include "app/stationlistpane.h"
#include "app/stationtablemodel.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "engine/radiorecorder.h"
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
    const UiKit::Page page = UiKit::makePage(this, tx("radio.title"));
    QVBoxLayout *layout = page.layout;

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

    m_pane = new StationListPane(app, tx("radio.emptyTitle"), tx("radio.emptyHint"), this);
    layout->addWidget(m_pane, 1);

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
    connect(&directory, &StationDirectory::icyStatusChanged, model(), &StationTableModel::setIcy);
    connect(table()->verticalScrollBar(), &QScrollBar::valueChanged, this, &RadioView::maybeLoadMore);
    connect(table()->verticalScrollBar(), &QScrollBar::rangeChanged, this, &RadioView::maybeLoadMore);
    connect(m_pane, &StationListPane::currentStationChanged, this, &RadioView::currentStationChanged);

    model()->setIcyStatus(directory.icyStatus());
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
    return m_pane->selectedStation();
}

QTableView *RadioView::table() const
{
    return m_pane->table();
}

StationTableModel *RadioView::model() const
{
    return m_pane->model();
}

StationActionBar *RadioView::actionBar() const
{
    return m_pane->actionBar();
}

void RadioView::refreshList()
{
    StationDirectory &directory = m_app.directory();
    const QString query = m_search->text().trimmed();
    QString status;
    if (m_source != Source::Directory && m_single) {
        m_heading->setText(m_source == Source::Random ? tx("radio.randomPick") : tx("radio.customPick"));
        model()->setStations({*m_single});
    } else if (query.isEmpty()) {
        m_heading->setText(tx("radio.recommendations"));
        model()->setStations(directory.recommendations());
    } else {
        m_heading->setText(Texts::text("radio.resultsFormat").arg(query));
        model()->setStations(directory.results());
        if (directory.isSearching())
            status = tx("radio.searching");
        else if (directory.isLoadingMore())
            status = tx("radio.loadingMore");
    }
    m_status->setText(status);

    if (!query.isEmpty() && !directory.isSearching())
        m_pane->showRowsOrEmpty(Texts::text("radio.noResultsFormat").arg(query), tx("radio.emptyHint"));
    else
        m_pane->showRowsOrEmpty(tx("radio.emptyTitle"), tx("radio.emptyHint"));
    // A first page shorter than the view shows its last row at once.
    QTimer::singleShot(0, this, &RadioView::maybeLoadMore);
}

void RadioView::maybeLoadMore()
{
    StationDirectory &directory = m_app.directory();
    if (!isVisible() || m_source != Source::Directory || m_search->text().trimmed().isEmpty())
        return;
    const int rows = model()->rowCount();
    if (!directory.hasMore() || directory.isLoadingMore() || directory.isSearching() || rows == 0)
        return;
    const int bottomRow = table()->rowAt(table()->viewport()->height() - 1);
    // -1: the rows end above the bottom edge, so the last one is in view.
    if (bottomRow == -1 || bottomRow >= rows - 1)
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
    table()->selectRow(0);
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
