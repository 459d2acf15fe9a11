#pragma once

#include <QList>
#include <QUrl>
#include <QWidget>

#include <functional>

class Application;
class LibraryFilterModel;
class LibraryModel;
class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;
class QTableView;
struct Track;

// The library as one sortable, filterable table, with "show in folder" and "delete"
// (file and entry, after a confirmation).
//
// Lives on the GUI thread.
class LibraryView : public QWidget {
    Q_OBJECT

public:
    explicit LibraryView(Application &app, QWidget *parent = nullptr);

    // Seams for tests: the confirmation question and the desktop's "open this folder".
    std::function<bool(const QString &question)> confirm;
    std::function<void(const QUrl &folder)> openFolder;

    [[nodiscard]] QList<Track> selectedTracks() const;
    void showSelectedInFolder();
    void deleteSelected();

    QLineEdit *filterField() const { return m_filter; }
    QTableView *table() const { return m_table; }
    LibraryModel *model() const { return m_model; }
    LibraryFilterModel *filterModel() const { return m_proxy; }
    QLabel *countLabel() const { return m_count; }

private:
    void refreshState();

    Application &m_app;
    LibraryModel *m_model = nullptr;
    LibraryFilterModel *m_proxy = nullptr;
    QLineEdit *m_filter = nullptr;
    QLabel *m_count = nullptr;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_empty = nullptr;
    QTableView *m_table = nullptr;
    QPushButton *m_showInFolder = nullptr;
    QPushButton *m_delete = nullptr;
};
