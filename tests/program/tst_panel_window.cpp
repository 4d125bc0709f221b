#include "literals.h"
#include "message_capture.h"
#include "scratch_folder.h"

#include "host/plugin_library.h"
#include "maintenance/gui_setup.h"
#include "maintenance/maintenance_panel.h"
#include "maintenance/maintenance_records.h"
#include "maintenance/panel_application.h"

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_element.h>

#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStyleHints>
#include <QtTest>

#include <optional>

namespace
{

QByteArray const c_records = R"({"tools": {
    "left bench": {"serialNumber": "ZRT-0042", "validityDate": "2027-03-01", "alertBeforeExpiration": 14},
    "right bench": {"serialNumber": "ZRT-0043", "validityDate": "", "alertBeforeExpiration": 7},
    "old tool": {"validityDate": "1969-12-31"}}})";

QString const c_tool = "left bench"_s;
QString const c_other = "right bench"_s;
QString const c_serialNumber = ".idValueSetSerialNumber"_s;
QString const c_validity = ".idValueSetValidityDate"_s;
QString const c_alert = ".idExpirationInDays"_s;

template <class Condition> QQuickItem* offspringWhere(QQuickItem* item, Condition const& condition)
{
    auto const children = item->childItems();
    for (auto* const child : children) {
        if (condition(child))
            return child;
        if (auto* const found = offspringWhere(child, condition))
            return found;
    }
    return nullptr;
}

/// Where an item ends on the window.
double bottom(QQuickItem* item)
{
    return item->mapToScene(QPointF(0, item->height())).y();
}

QString textOf(DElement const& record)
{
    return "%1, %2, %3"_s.arg(record.serialNumber(), record.validityDate(),
                              QString::number(record.stbExpiredDelay()));
}

// There is no window manager that would do it.
void activate(QQuickWindow& window)
{
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    window.requestActivate();
    QVERIFY(QTest::qWaitForWindowActive(&window));
}

bool xdotool(QStringList const& arguments)
{
    QProcess process;
    process.start(QStringLiteral(XDOTOOL_PROGRAM), arguments);
    return process.waitForFinished() && process.exitCode() == 0;
}

} // namespace

/// The maintenance page in its window, used by mouse and keyboard on a screen of X11.
class TestPanelWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        setUpGui();
        // Two clicks of ours are two clicks, however quick.
        QGuiApplication::styleHints()->setMouseDoubleClickInterval(0);
        m_library.emplace(QStringLiteral(ZRT_PLUGIN_FILE));
        m_library->plugin();
        QVERIFY(QDir().mkpath(QStringLiteral(PICTURES_DIR)));
    }

    void init() { m_messages.emplace(); }

    void cleanup()
    {
        m_station.reset();
        m_folder.reset();
        // What the engine had to say is a fault, of the page or of the window.
        QStringList warnings;
        for (auto const& line : qAsConst(m_messages->lines)) {
            if (line.text.contains("qrc:"_s))
                warnings += line.text;
        }
        m_messages.reset();
        QCOMPARE(warnings, QStringList());
    }

    void editCloseReopen()
    {
        openStation();
        picture("light");
        QVERIFY(!named("state"));
        typeSerialNumber({"ctrl+a"_s, "Z"_s, "minus"_s, "8"_s});
        QTRY_COMPARE(record(), "Z-8, 2027-03-01, 14"_s);
        QTRY_VERIFY(named("state"));

        openCalendar();
        picture("calendar");
        type({"Next"_s, "Right"_s, "Return"_s});
        QTRY_COMPARE(record(), "Z-8, 2027-04-02, 14"_s);

        QTRY_VERIFY(find(c_validity, "UiButton")->hasActiveFocus());
        type({"Tab"_s, "Up"_s});
        QTRY_COMPARE(record(), "Z-8, 2027-04-02, 21"_s);
        auto* const up = find(c_alert, "SpinBox")->property("up").value<QObject*>();
        click(up->property("indicator").value<QQuickItem*>());
        QTRY_COMPARE(record(), "Z-8, 2027-04-02, 28"_s);

        QCOMPARE(contentOf(m_file), c_records);
        close();
        QTRY_VERIFY(!window().isVisible());
        QVERIFY(!m_station->panel->page());
        QCOMPARE(m_folder->names(), QStringList{"records.json"_s});

        openStation(c_tool, MaintenancePanel::Theme::Dark);
        picture("dark");
        QCOMPARE(serialNumberShown(), "Z-8"_s);
        QCOMPARE(find(c_validity, "UiButton")->property("text").toString(),
                 QLocale().toString(QDate(2027, 4, 2), QLocale::LongFormat));
        QCOMPARE(find(c_alert, "SpinBox")->property("displayText").toString(), "28 days"_s);
        QCOMPARE(record(c_other), "ZRT-0043, , 7"_s);
        QVERIFY(!m_station->records.record(c_other)->validityDate().isNull());
    }

    void calendarByMouse()
    {
        openStation();
        openCalendar();
        click(named("next month"));
        click(named("day30"));
        QTRY_COMPARE(record(), "ZRT-0042, 2027-04-30, 14"_s);
    }

    void heldKey()
    {
        openStation();
        find(c_validity, "UiButton")->forceActiveFocus();
        // It opens the calendar; what follows of it picks nothing.
        type({"Return"_s});
        QTRY_VERIFY(named("calendar") && named("calendar")->hasActiveFocus());
        repeat(Qt::Key_Return);
        QTest::qWait(100);
        QVERIFY(named("calendar"));
        QVERIFY(!m_station->application.isConfigChanged());

        // It picks; what follows of it does not open the calendar again.
        type({"Right"_s, "Return"_s});
        QTRY_VERIFY(find(c_validity, "UiButton")->hasActiveFocus() && !named("calendar"));
        repeat(Qt::Key_Return);
        QTest::qWait(100);
        QVERIFY(!named("calendar"));
    }

    void alert()
    {
        openStation(c_other);
        QVERIFY(!named("alert"));
        // The page shows it like a permanent one.
        openStation("new tool"_s);
        QVERIFY(!m_station->panel->isUrgent());
        QTRY_VERIFY(named("alert"));
        QCOMPARE(named("alert")->property("text").toString(), "no maintenance validity is set"_s);
        openStation("old tool"_s);
        QVERIFY(m_station->panel->isUrgent());
        QTRY_VERIFY(named("alert"));
        QVERIFY(named("alert")->property("text").toString().contains("overdue"_s));
        picture("overdue");

        // It goes as soon as there is no reason for it.
        openCalendar();
        click(named("permanent"));
        QTRY_VERIFY(!named("alert"));
    }

    void manyComplaints()
    {
        QByteArray tools;
        for (int i = 0; i < 100; ++i)
            tools += "\"tool " + QByteArray::number(i) + "\": 5, ";
        writeRecords("{\"tools\": {" + tools + "\"left bench\": {}}}");
        openStation();
        QTRY_VERIFY(named("problem"));
        QVERIFY(m_station->panel->problem().endsWith("\nand 97 more"_s));
        // They leave room for the page.
        QVERIFY(bottom(find(c_serialNumber, "TextField")) < window().height());
    }

    void closeWithoutEdits()
    {
        openStation();
        close();
        QTRY_VERIFY(!window().isVisible());
        QCOMPARE(contentOf(m_file), c_records);
    }

    void failedSave()
    {
        openStation();
        QVERIFY(m_station->panel->problem().isEmpty());
        typeSerialNumber({"End"_s, "x"_s});
        QTRY_COMPARE(record(), "ZRT-0042x, 2027-03-01, 14"_s);

        // Somebody breaks the file meanwhile: it must not be written over.
        QByteArray const broken("{\"tools\": ");
        m_folder->write("records.json"_s, broken);
        close();
        QTRY_VERIFY(m_station->panel->mayDiscard());
        QVERIFY(window().isVisible());
        QVERIFY2(m_station->panel->problem().contains(m_file), qPrintable(m_station->panel->problem()));
        QCOMPARE(contentOf(m_file), broken);
        // The page is back, with what was edited.
        QCOMPARE(serialNumberShown(), "ZRT-0042x"_s);
        picture("problem");

        // And mends it.
        m_folder->write("records.json"_s, c_records);
        close();
        QTRY_VERIFY(!window().isVisible());
        QCOMPARE(savedRecord(), "ZRT-0042x, 2027-03-01, 14"_s);
    }

    void discard()
    {
        openStation();
        typeSerialNumber({"End"_s, "x"_s});
        QTRY_VERIFY(m_station->application.isConfigChanged());
        QVERIFY(QFile::remove(m_file) && QDir().mkdir(m_file));
        close();
        QTRY_VERIFY(m_station->panel->mayDiscard());
        QVERIFY(QDir().rmdir(m_file));
        m_folder->write("records.json"_s, c_records);

        click(named("discard"));
        QTRY_VERIFY(!window().isVisible());
        m_station.reset();
        QCOMPARE(contentOf(m_file), c_records);
    }

    // Each saves what was edited on it; neither undoes the other's.
    void twoPanels()
    {
        openStation();
        MaintenancePanel second(m_library->plugin(), c_tool, m_station->records, m_station->application,
                                MaintenancePanel::Theme::Light);
        typeSerialNumber({"End"_s, "1"_s});
        QTRY_VERIFY(m_station->application.isConfigChanged());
        second.window().setPosition(0, 0);
        second.window().resize(800, 600);
        second.window().show();
        activate(second.window());
        find(c_alert, "SpinBox", &second)->forceActiveFocus();
        type({"Down"_s});
        QTRY_COMPARE(record(), "ZRT-00421, 2027-03-01, 7"_s);

        QVERIFY(second.close());
        second.window().hide();
        QVERIFY(m_station->panel->close());
        QCOMPARE(savedRecord(), "ZRT-00421, 2027-03-01, 7"_s);
    }

    void smallScreen()
    {
        openStation();
        window().resize(480, 272);
        // The keyboard reaches what does not fit, and brings it into view.
        auto* const box = find(c_alert, "SpinBox");
        for (int i = 0; i < 10 && !box->hasActiveFocus(); ++i) {
            auto const* const before = window().activeFocusItem();
            type({"Tab"_s});
            QTRY_VERIFY(window().activeFocusItem() != before);
        }
        QVERIFY(box->hasActiveFocus());
        QTRY_VERIFY(bottom(box) <= window().height());
        QVERIFY(bottom(box) >= box->height());
        picture("small");
        openCalendar();
        QVERIFY(bottom(named("cancel")) <= window().height());
        picture("small_calendar");
    }

    void program()
    {
        writeRecords(c_records);
        QProcess workplace;
        workplace.start(QStringLiteral(WORKPLACE_PROGRAM),
                        {"panel"_s, "--tool"_s, "right bench"_s, "--records"_s, m_file});
        QVERIFY(workplace.waitForStarted());
        // A window that has the focus is one that listens.
        QVERIFY(xdotool({"search"_s, "--sync"_s, "--onlyvisible"_s, "--name"_s, "right bench"_s}));
        QTRY_VERIFY(xdotool({"getwindowfocus"_s, "getwindowname"_s}));
        // By keyboard alone: from the first field back to the button.
        type({"End"_s, "x"_s, "shift+Tab"_s, "Return"_s});
        QTRY_COMPARE_WITH_TIMEOUT(workplace.state(), QProcess::NotRunning, 30000);
        QCOMPARE(workplace.readAllStandardOutput(), QByteArray("right bench: maintenance valid permanently\n"
                                                               "right bench: saved to ")
                                                        + m_file.toUtf8() + '\n');
        QCOMPARE(workplace.readAllStandardError(), QByteArray());
        QCOMPARE(workplace.exitCode(), 0);
        QCOMPARE(savedRecord(c_other), "ZRT-0043x, , 7"_s);
    }

private:
    /// A workstation with the window of one tool on the screen.
    struct Station
    {
        Station(DAbstractPlugin const& plugin, QString const& file, QString const& tool,
                MaintenancePanel::Theme theme)
            : records(file)
            , application(records)
            , panel(std::in_place, plugin, tool, records, application, theme)
        {
            panel->window().resize(800, 600);
            panel->window().show();
        }
        MaintenanceRecords records;
        PanelApplication application;
        std::optional<MaintenancePanel> panel;
    };

    QQuickWindow& window() const { return m_station->panel->window(); }

    QQuickItem* find(QString const& suffix, char const* kind, MaintenancePanel* panel = nullptr)
    {
        auto const* const page = (panel ? panel : &*m_station->panel)->page();
        auto* const column = page->findChild<QQuickItem*>("maintenance_panel_tool_zrt.idColumn"_s + suffix);
        return offspringWhere(column, [kind](QQuickItem* child) {
            return QByteArray(child->metaObject()->className()).startsWith(kind);
        });
    }

    /// What is on the screen under a name.
    QQuickItem* named(char const* name)
    {
        return offspringWhere(window().contentItem(), [name](QQuickItem* child) {
            return child->isVisible() && child->objectName() == QLatin1String(name);
        });
    }

    /// "SERIAL NUMBER, VALIDITY, DAYS OF ALERT".
    QString record(QString const& tool = c_tool) { return textOf(*m_station->records.record(tool)); }
    QString savedRecord(QString const& tool = c_tool) const
    {
        return textOf(*MaintenanceRecords(m_file).record(tool));
    }
    QString serialNumberShown() { return find(c_serialNumber, "TextField")->property("text").toString(); }

    void typeSerialNumber(QStringList const& keys)
    {
        click(find(c_serialNumber, "TextField"));
        type(keys);
    }

    void openCalendar()
    {
        click(find(c_validity, "UiButton"));
        QTRY_VERIFY(named("calendar") && named("calendar")->hasActiveFocus());
    }

    void type(QStringList const& keys)
    {
        QVERIFY(xdotool(QStringList{"key"_s} + keys));
        QTest::qWait(50);
    }

    // As Qt hands on what a held key repeats. A key that is really held is no test: what the screen sends for
    // it is a release and a press, and where the machine is busy Qt takes them for such.
    void repeat(Qt::Key key)
    {
        for (int i = 0; i < 3; ++i) {
            for (auto const type : {QEvent::KeyRelease, QEvent::KeyPress}) {
                QKeyEvent event(type, key, Qt::NoModifier, "\r"_s, true);
                QCoreApplication::sendEvent(&window(), &event);
            }
        }
    }

    void click(QQuickItem* item)
    {
        QVERIFY(item);
        // Where it is once everything has found its place.
        QSignalSpy frames(item->window(), &QQuickWindow::frameSwapped);
        item->window()->update();
        QVERIFY(frames.wait(30000));
        QPoint const center = item->window()->mapToGlobal(
            item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint());
        QVERIFY(xdotool(
            {"mousemove"_s, QString::number(center.x()), QString::number(center.y()), "click"_s, "1"_s}));
        // Follows in the X server's queue; when it has arrived, so has the click.
        QTest::qWait(50);
    }

    void close() { click(named("close")); }

    void picture(char const* name) const
    {
        QImage const image = window().grabWindow();
        QVERIFY(image.save(QStringLiteral(PICTURES_DIR "/%1.png").arg(QLatin1String(name))));
    }

    void writeRecords(QByteArray const& content)
    {
        m_folder.emplace();
        m_file = m_folder->write("records.json"_s, content);
    }

    void openStation(QString const& tool = c_tool,
                     MaintenancePanel::Theme theme = MaintenancePanel::Theme::Light)
    {
        if (!m_folder)
            writeRecords(c_records);
        m_station.reset();
        m_station.emplace(m_library->plugin(), m_file, tool, theme);
        activate(window());
    }

    std::optional<PluginLibrary> m_library;
    std::optional<ScratchFolder> m_folder;
    QString m_file;
    std::optional<Station> m_station;
    std::optional<MessageCapture> m_messages;
};

QTEST_MAIN(TestPanelWindow)
#include "tst_panel_window.moc"
