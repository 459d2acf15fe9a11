#include "app/columnfit.h"
#include "app/countrynames.h"
#include "app/elidedlabel.h"
#include "app/libraryview.h"
#include "app/librarymodel.h"
#include "app/mainwindow.h"
#include "app/settingsview.h"
#include "app/uilanguage.h"
#include "engine/radiorecorder.h"
#include "library/librarystore.h"
#include "stations/favoritestations.h"

#include "appfixture.h"

#include <QHeaderView>
#include <QScrollBar>
#include <QStackedWidget>
#include <QTableView>
#include <QtEndian>

namespace {

TEST(ColumnFit, DropsTheLeastImportantColumnsAndGivesTheRoomByWeight)
{
    const ColumnFit::Column columns[] = {{30, 0, 9}, {100, 4, 10}, {80, 1, 5}, {60, 1, 1}};
    // Everything fits: 270 of minimums, 130 shared 4:1:1, the remainder to the title.
    EXPECT_EQ(ColumnFit::fit(columns, 400), (QList<int>{30, 100 + 86 + 2, 80 + 21, 60 + 21}));
    // 210 px: the lowest priority goes first, the rest fit.
    EXPECT_EQ(ColumnFit::fit(columns, 210), (QList<int>{30, 100, 80, 0}));
    // Too narrow for anything but the most important column, which stays at its minimum.
    EXPECT_EQ(ColumnFit::fit(columns, 10), (QList<int>{0, 100, 0, 0}));
    EXPECT_TRUE(ColumnFit::fit({}, 100).isEmpty());
}

// A compiled gettext catalogue as msgfmt writes it, in the given byte order.
QByteArray catalogue(const QList<std::pair<QByteArray, QByteArray>> &entries, bool bigEndian = false)
{
    auto word = [bigEndian](quint32 value) {
        QByteArray bytes(4, '\0');
        if (bigEndian)
            qToBigEndian(value, bytes.data());
        else
            qToLittleEndian(value, bytes.data());
        return bytes;
    };
    const quint32 count = quint32(entries.size());
    const quint32 originals = 28;
    const quint32 translations = originals + count * 8;
    quint32 offset = translations + count * 8;
    QByteArray head = word(0x950412de) + word(0) + word(count) + word(originals) + word(translations) + word(0) +
                      word(0);
    QByteArray tables[2];
    QByteArray strings;
    for (int side = 0; side < 2; ++side) {
        for (const auto &entry : entries) {
            const QByteArray &text = side == 0 ? entry.first : entry.second;
            tables[side] += word(quint32(text.size())) + word(offset);
            strings += text + '\0';
            offset += quint32(text.size()) + 1;
        }
    }
    return head + tables[0] + tables[1] + strings;
}

TEST(CountryNames, DirectoryNamesBecomeShortNamesInTheLanguage)
{
    const QByteArray json = R"({"3166-1": [
        {"alpha_2": "DE", "name": "Germany", "official_name": "Federal Republic of Germany"},
        {"alpha_2": "GB", "name": "United Kingdom",
         "official_name": "United Kingdom of Great Britain and Northern Ireland"},
        {"alpha_2": "KR", "common_name": "South Korea", "name": "Korea, Republic of"}]})";
    for (const bool bigEndian : {false, true}) {
        const QByteArray mo = catalogue({{"", "Content-Type: text/plain; charset=UTF-8\n"},
                                         {"Germany", "Deutschland"},
                                         {"United Kingdom", "Vereinigtes K\xc3\xb6nigreich"},
                                         {"Korea, Republic of", "Korea, Republik"},
                                         {"South Korea", "S\xc3\xbc" "dkorea"}},
                                        bigEndian);
        EXPECT_EQ(CountryNames::parseCatalogue(mo).size(), 4);
        const CountryNames::Table german = CountryNames::buildTable(json, mo);
        EXPECT_EQ(CountryNames::display(german, QStringLiteral("Germany")), QStringLiteral("Deutschland"));
        // The directory's spelling of the official name, with "The" and in title case.
        EXPECT_EQ(CountryNames::display(german, QStringLiteral("The United Kingdom Of Great Britain And Northern Ireland")),
                  QStringLiteral("Vereinigtes Königreich"));
        EXPECT_EQ(CountryNames::display(german, QStringLiteral("The Republic Of Korea")),
                  QStringLiteral("The Republic Of Korea")); // no such form: as it came
        EXPECT_EQ(CountryNames::display(german, QStringLiteral("korea, republic of")), QStringLiteral("Südkorea"));
    }
    const CountryNames::Table english = CountryNames::buildTable(json, QByteArray());
    EXPECT_EQ(CountryNames::display(english, QStringLiteral("Korea, Republic Of")), QStringLiteral("South Korea"));
    EXPECT_EQ(CountryNames::display(english, QStringLiteral("Atlantis")), QStringLiteral("Atlantis"));

    // Damaged catalogues give nothing rather than garbage.
    QByteArray cut = catalogue({{"Germany", "Deutschland"}});
    cut.chop(12);
    EXPECT_TRUE(CountryNames::parseCatalogue(cut).isEmpty());
    EXPECT_TRUE(CountryNames::parseCatalogue("not a catalogue at all, just text").isEmpty());
}

TEST(CountryNames, TheInstalledIsoCodesPackageIsRead)
{
    EXPECT_EQ(CountryNames::display(QStringLiteral("Austria"), Texts::Language::German), QStringLiteral("Österreich"));
    EXPECT_EQ(CountryNames::display(QStringLiteral("The Russian Federation"), Texts::Language::English),
              QStringLiteral("Russian Federation"));
    EXPECT_EQ(CountryNames::display(QString(), Texts::Language::German), QString());
}

TEST(ElidedLabel, ShowsBothEndsOfALongPathAndKeepsTheWholeText)
{
    ElidedLabel label;
    const QString path = QStringLiteral("/home/anna/Music/Radio/Jazz Radio/2026-11-23/Nina Simone - Feeling Good.mp3");
    label.setText(path);
    label.resize(label.fontMetrics().horizontalAdvance(path) / 2, 30);
    EXPECT_EQ(label.text(), path);
    const QString shown = label.shownText();
    EXPECT_TRUE(shown.startsWith(QStringLiteral("/home"))) << shown.toStdString();
    EXPECT_TRUE(shown.endsWith(QStringLiteral("Good.mp3"))) << shown.toStdString();
    EXPECT_TRUE(shown.contains(QChar(0x2026)));
    EXPECT_LT(label.minimumSizeHint().width(), 200);
}

class WindowLayoutTest : public AppFixture {
protected:
    void TearDown() override
    {
        UiLanguage::apply(Texts::Language::English);
        AppFixture::TearDown();
    }
};

// Half of a 1920 px screen, in both languages: no page may ask for more than 800 px, and
// at 800 px the library's title column is its widest and nothing scrolls sideways.
TEST_F(WindowLayoutTest, EveryPageFitsIn800PixelsInBothLanguages)
{
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(app->favorites().add(makeStation(QStringLiteral("s%1").arg(i),
                                                     QStringLiteral("A Station With A Rather Long Name %1").arg(i),
                                                     QStringLiteral("The United Kingdom Of Great Britain And Northern Ireland"))));
    QList<Track> tracks;
    for (int i = 0; i < 5; ++i)
        tracks << Track(QStringLiteral("A Song With A Long Title %1").arg(i), QStringLiteral("Artist"),
                        QStringLiteral("Album"), 200, QDateTime::currentDateTimeUtc(), QString(), false, 0,
                        QStringLiteral("radio"), QStringLiteral("FM"), home.file(QStringLiteral("Music/%1.mp3").arg(i)));
    ASSERT_EQ(app->library()->insertTracks(tracks).size(), 5);

    MainWindow window(*app, MainWindowOptions{1800, false});
    window.show();
    for (const Texts::Language language : {Texts::Language::English, Texts::Language::German}) {
        window.setInterfaceLanguage(language);
        const char *name = language == Texts::Language::German ? "German" : "English";
        for (int page = 0; page < MainWindow::PageCount; ++page) {
            window.showPage(MainWindow::Page(page));
            QWidget *shown = window.findChild<QStackedWidget *>()->currentWidget();
            ASSERT_NE(shown, nullptr);
            QApplication::processEvents();
            // The whole window, every page at once: the page stack asks for its widest page.
            EXPECT_LE(window.minimumSizeHint().width(), 800) << name << " page " << page;
        }
        window.resize(800, 600);
        window.showPage(MainWindow::LibraryPage);
        QTableView *table = window.libraryView()->table();
        QTRY_COMPARE(table->model()->rowCount(), 5);
        QTRY_COMPARE(window.width(), 800);
        QApplication::processEvents();
        EXPECT_FALSE(table->horizontalScrollBar()->isVisible()) << name;
        const QHeaderView *header = table->horizontalHeader();
        EXPECT_LE(header->length(), table->viewport()->width()) << name;
        for (int column = 0; column < LibraryModel::ColumnCount; ++column) {
            if (column != LibraryModel::TitleColumn && !header->isSectionHidden(column)) {
                EXPECT_GT(header->sectionSize(LibraryModel::TitleColumn), header->sectionSize(column)) << column;
            }
        }
        // The naming example keeps both ends of its path in view at half a screen.
        window.showPage(MainWindow::SettingsPage);
        QApplication::processEvents();
        const auto *preview = qobject_cast<ElidedLabel *>(window.settingsView()->previewLabel());
        ASSERT_NE(preview, nullptr);
        EXPECT_TRUE(preview->shownText().endsWith(QStringLiteral(".mp3"))) << name << preview->shownText().toStdString();
        window.showPage(MainWindow::LibraryPage);

        window.resize(1600, 800);
        QTRY_COMPARE(window.width(), 1600);
        QApplication::processEvents();
        // Wide, every column is back.
        for (int column = 0; column < LibraryModel::ColumnCount; ++column)
            EXPECT_FALSE(header->isSectionHidden(column)) << name << " column " << column;
    }
}

} // namespace
