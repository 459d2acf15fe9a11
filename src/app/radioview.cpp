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

#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMenu>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// Tags common enough in the directory to offer for a random station; any other can be typed.
const QStringList &suggestedGenres()
{
    static const QStringList genres{
        QStringLiteral("ambient"), QStringLiteral("blues"),  QStringLiteral("chillout"), QStringLiteral("classical"),
        QStringLiteral("country"), QStringLiteral("dance"),  QStringLiteral("electronic"), QStringLiteral("hip hop"),
        QStringLiteral("jazz"),    QStringLiteral("lounge"), QStringLiteral("metal"),    QStringLiteral("news"),
        QStringLiteral("oldies"),  QStringLiteral("pop"),    QStringLiteral("reggae"),   QStringLiteral("rock"),
        QStringLiteral("soul"),    QStringLiteral("talk"),
    };
    return genres;
}

// Refills a filter box with "all" and the directory's entries, keeping the choice made.
void fillFacetBox(QComboBox *box, const QString &allText, const QList<DirectoryApi::Facet> &facets, bool byCode)
{
    const QString chosen = box->currentData().toString();
    const QSignalBlocker blocker(box);
    box->clear();
    box->addItem(allText, QString());
    for (const DirectoryApi::Facet &facet : facets) {
        // The directory lists languages in lower case.
        const QString label = byCode ? facet.name : facet.name.left(1).toUpper() + facet.name.mid(1);
        box->addItem(label, byCode ? facet.code : facet.name);
    }
    const int index = box->findData(chosen);
    box->setCurrentIndex(index >= 0 ? index : 0);
}

} // namespace

RadioView::RadioView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
    , m_homeCountryCode(countryCodeOf(QLocale::system()))
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
    m_genre = new QComboBox(this);
    m_genre->setObjectName(QStringLiteral("randomGenre"));
    m_genre->setEditable(true);
    m_genre->setInsertPolicy(QComboBox::NoInsert);
    m_genre->addItem(QString());
    m_genre->addItems(suggestedGenres());
    m_genre->lineEdit()->setPlaceholderText(tx("radio.anyGenre"));
    m_genre->setToolTip(tx("radio.genre"));
    m_genre->setAccessibleName(tx("radio.genre"));
    m_genre->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_genre->setMinimumContentsLength(10);
    auto *custom = new QPushButton(tx("radio.custom"), this);
    custom->setObjectName(QStringLiteral("customButton"));
    searchRow->addWidget(m_search, 1);
    searchRow->addWidget(random);
    searchRow->addWidget(m_genre);
    searchRow->addWidget(custom);
    layout->addLayout(searchRow);

    auto *filterRow = new QHBoxLayout;
    const auto makeBox = [this, filterRow](const char *name, const QString &label) {
        auto *box = new QComboBox(this);
        box->setObjectName(QString::fromLatin1(name));
        box->setToolTip(label);
        box->setAccessibleName(label);
        box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        box->setMinimumContentsLength(12);
        filterRow->addWidget(box);
        return box;
    };
    m_country = makeBox("countryFilter", tx("radio.country"));
    m_language = makeBox("languageFilter", tx("radio.language"));
    m_order = makeBox("orderFilter", tx("radio.order"));
    m_order->addItem(tx("radio.orderClicks"), int(DirectoryApi::SearchOrder::ClickCount));
    m_order->addItem(tx("radio.orderVotes"), int(DirectoryApi::SearchOrder::Votes));
    filterRow->addStretch();
    layout->addLayout(filterRow);

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
    m_pane->setSortable(true);
    layout->addWidget(m_pane, 1);

    StationDirectory &directory = app.directory();
    fillFacetBoxes();
    connect(m_search, &QLineEdit::textChanged, this, &RadioView::runSearch);
    for (QComboBox *box : {m_country, m_language, m_order})
        connect(box, &QComboBox::currentIndexChanged, this, &RadioView::runSearch);
    connect(random, &QPushButton::clicked, this, &RadioView::pickRandomStation);
    connect(m_genre->lineEdit(), &QLineEdit::returnPressed, this, &RadioView::pickRandomStation);
    connect(custom, &QPushButton::clicked, this, &RadioView::askForCustomStation);
    connect(&directory, &StationDirectory::resultsChanged, this, &RadioView::refreshList);
    connect(&directory, &StationDirectory::recommendationsChanged, this, &RadioView::refreshList);
    connect(&directory, &StationDirectory::popularChanged, this, &RadioView::refreshList);
    connect(&directory, &StationDirectory::isSearchingChanged, this, &RadioView::refreshList);
    connect(&directory, &StationDirectory::isLoadingMoreChanged, this, &RadioView::refreshList);
    connect(&directory, &StationDirectory::facetsChanged, this, &RadioView::fillFacetBoxes);
    connect(&directory, &StationDirectory::icyStatusChanged, model(), &StationTableModel::setIcy);
    connect(table()->verticalScrollBar(), &QScrollBar::valueChanged, this, &RadioView::maybeLoadMore);
    connect(table()->verticalScrollBar(), &QScrollBar::rangeChanged, this, &RadioView::maybeLoadMore);
    connect(m_pane, &StationListPane::currentStationChanged, this, &RadioView::currentStationChanged);

    model()->setIcyStatus(directory.icyStatus());
    refreshList();
}

QString RadioView::countryCodeOf(const QLocale &locale)
{
    const QLocale::Territory territory = locale.territory();
    if (territory == QLocale::AnyTerritory || territory == QLocale::World)
        return QString();
    const QString code = QLocale::territoryToCode(territory);
    // Regions such as "Latin America" (419) are not countries the directory files under.
    return code.size() == 2 && code[0].isLetter() ? code : QString();
}

DirectoryApi::SearchFilter RadioView::filter() const
{
    DirectoryApi::SearchFilter filter;
    filter.countryCode = m_country->currentData().toString();
    filter.language = m_language->currentData().toString();
    filter.order = DirectoryApi::SearchOrder(m_order->currentData().toInt());
    return filter;
}

void RadioView::runSearch()
{
    m_source = Source::Directory;
    m_single.reset();
    m_app.directory().search(m_search->text(), filter());
    refreshList();
}

void RadioView::fillFacetBoxes()
{
    const StationDirectory &directory = m_app.directory();
    fillFacetBox(m_country, tx("radio.allCountries"), directory.countries(), true);
    fillFacetBox(m_language, tx("radio.allLanguages"), directory.languages(), false);
}

void RadioView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // The start page and the filter lists are filled on first sight; each is asked for
    // once (again only after a failure).
    m_app.directory().loadRecommendations();
    m_app.directory().loadPopular(m_homeCountryCode);
    m_app.directory().loadFacets();
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
    const bool narrowed = !filter().narrowsNothing();
    QString status;
    if (m_source != Source::Directory && m_single) {
        m_heading->setText(m_source == Source::Random ? tx("radio.randomPick") : tx("radio.customPick"));
        model()->setStations({*m_single});
    } else if (query.isEmpty() && !narrowed) {
        m_heading->setText(tx("radio.startPage"));
        QList<Station> start = directory.recommendations();
        for (const Station &station : directory.popular()) {
            const bool shown = std::any_of(start.cbegin(), start.cend(), [&](const Station &s) { return s.id == station.id; });
            if (!shown)
                start.append(station);
        }
        model()->setStations(start);
    } else {
        m_heading->setText(query.isEmpty() ? tx("radio.filtered") : Texts::text("radio.resultsFormat").arg(query));
        model()->setStations(directory.results());
        if (directory.isSearching())
            status = tx("radio.searching");
        else if (directory.isLoadingMore())
            status = tx("radio.loadingMore");
    }
    m_status->setText(status);

    if ((!query.isEmpty() || narrowed) && !directory.isSearching() && m_source == Source::Directory)
        m_pane->showRowsOrEmpty(query.isEmpty() ? tx("radio.noFiltered")
                                                : Texts::text("radio.noResultsFormat").arg(query),
                                tx("radio.emptyHint"));
    else
        m_pane->showRowsOrEmpty(tx("radio.emptyTitle"), tx("radio.emptyHint"));
    // A first page shorter than the view shows its last row at once.
    QTimer::singleShot(0, this, &RadioView::maybeLoadMore);
}

void RadioView::maybeLoadMore()
{
    StationDirectory &directory = m_app.directory();
    if (!isVisible() || m_source != Source::Directory ||
        (m_search->text().trimmed().isEmpty() && filter().narrowsNothing()))
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
    const QString genre = m_genre->currentText().trimmed();
    m_randomTransfer = DirectoryApi::randomStation(m_app.http(), m_app.directoryBase(), genre, this,
                                                   [this, genre](std::optional<Station> station) {
                                                       if (station)
                                                           showSingle(Source::Random, *station);
                                                       else if (!genre.isEmpty())
                                                           m_status->setText(Texts::text("radio.noRandomFormat").arg(genre));
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
