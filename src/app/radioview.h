#pragma once

#include "platform/httpclient.h"
#include "stations/directoryapi.h"
#include "stations/station.h"

#include <QWidget>

#include <optional>

class Application;
class QComboBox;
class QLabel;
class QLocale;
class QLineEdit;
class QTableView;
class StationActionBar;
class StationListPane;
class StationTableModel;

// The station search: a debounced search of names and tags over the directory, narrowed
// by country and language and ordered by clicks or votes, columns that sort, more rows
// as the last one comes into view, a start page (the recommendations, then the popular
// stations of the user's country) while nothing is searched, a random station of a
// chosen genre and a stream address typed in by hand.
//
// Lives on the GUI thread.
class RadioView : public QWidget {
    Q_OBJECT

public:
    explicit RadioView(Application &app, QWidget *parent = nullptr);

    // Shows one station the user entered by its address, ready to record or keep.
    void showCustomStation(const QString &streamUrl, const QString &name);
    // A random station of the genre in genreBox(), of any genre when it is blank.
    void pickRandomStation();

    // The country the start page's popular stations come from: the territory of `locale`
    // as an ISO 3166-1 code, "" when it names none.
    [[nodiscard]] static QString countryCodeOf(const QLocale &locale);
    // Overrides the system locale's country for the start page (before it is shown).
    void setHomeCountryCode(const QString &code) { m_homeCountryCode = code; }
    // What the filter row narrows the search by.
    [[nodiscard]] DirectoryApi::SearchFilter filter() const;

    [[nodiscard]] std::optional<Station> selectedStation() const;
    QLineEdit *searchField() const { return m_search; }
    QTableView *table() const;
    StationTableModel *model() const;
    StationActionBar *actionBar() const;
    QComboBox *countryBox() const { return m_country; }
    QComboBox *languageBox() const { return m_language; }
    QComboBox *orderBox() const { return m_order; }
    QComboBox *genreBox() const { return m_genre; }

Q_SIGNALS:
    void currentStationChanged(const std::optional<Station> &station);

protected:
    void showEvent(QShowEvent *event) override;

private:
    enum class Source { Directory, Random, Custom };

    void runSearch();
    void fillFacetBoxes();
    void refreshList();
    void maybeLoadMore();
    void askForCustomStation();
    void showSingle(Source source, const Station &station);

    Application &m_app;
    Source m_source = Source::Directory;
    std::optional<Station> m_single;
    HttpTransfer m_randomTransfer;
    QString m_homeCountryCode;

    QLineEdit *m_search = nullptr;
    QComboBox *m_country = nullptr;
    QComboBox *m_language = nullptr;
    QComboBox *m_order = nullptr;
    QComboBox *m_genre = nullptr;
    QLabel *m_heading = nullptr;
    QLabel *m_status = nullptr;
    StationListPane *m_pane = nullptr;
};
