#pragma once

#include "platform/httpclient.h"
#include "stations/station.h"

#include <QWidget>

#include <optional>

class Application;
class QLabel;
class QLineEdit;
class QTableView;
class StationActionBar;
class StationListPane;
class StationTableModel;

// The station search: a debounced name search over the directory, more rows as the last
// one comes into view, the recommendations while the field is empty, a random station
// and a stream address typed in by hand.
//
// Lives on the GUI thread.
class RadioView : public QWidget {
    Q_OBJECT

public:
    explicit RadioView(Application &app, QWidget *parent = nullptr);

    // Shows one station the user entered by its address, ready to record or keep.
    void showCustomStation(const QString &streamUrl, const QString &name);
    void pickRandomStation();

    [[nodiscard]] std::optional<Station> selectedStation() const;
    QLineEdit *searchField() const { return m_search; }
    QTableView *table() const;
    StationTableModel *model() const;
    StationActionBar *actionBar() const;

Q_SIGNALS:
    void currentStationChanged(const std::optional<Station> &station);

protected:
    void showEvent(QShowEvent *event) override;

private:
    enum class Source { Directory, Random, Custom };

    void refreshList();
    void maybeLoadMore();
    void askForCustomStation();
    void showSingle(Source source, const Station &station);

    Application &m_app;
    Source m_source = Source::Directory;
    std::optional<Station> m_single;
    HttpTransfer m_randomTransfer;

    QLineEdit *m_search = nullptr;
    QLabel *m_heading = nullptr;
    QLabel *m_status = nullptr;
    StationListPane *m_pane = nullptr;
};
