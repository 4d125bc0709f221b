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

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QProcess>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QStyleHints>
#include <QTest>

#include <optional>

namespace
{

QByteArray const c_records = R"({"tools": {
    "left bench": {"serialNumber": "ZRT-0042", "validityDate": "2027-03-01", "alertBeforeExpiration": 14},
    "right bench": {"serialNumber": "ZRT-0043", "validityDate": "", "alertBeforeExpiration": 7},
    "old tool": {"validityDate": "1969-12-31"}}})";

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

QQuickItem* offspring(QQuickItem* item, char const* kind)
{
    return offspringWhere(item, [kind](QQuickItem* child) {
        return QByteArray(child->metaObject()->className()).startsWith(kind);
    });
}

/// What is on the screen under a name.
QQuickItem* named(QQuickWindow& window, char const* name)
{
    return offspringWhere(window.contentItem(), [name](QQuickItem* child) {
        return child->isVisible() && child->objectName() == QLatin1String(name);
    });
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
        openStation("left bench"_s);
        picture("light");
        QVERIFY(!named(window(), "state"));

        click(find(c_serialNumber, "TextField"));
        type({"ctrl+a"_s, "Z"_s, "minus"_s, "8"_s});
        QTRY_COMPARE(m_station->records.record("left bench"_s)->serialNumber(), "Z-8"_s);
        QTRY_VERIFY(named(window(), "state"));

        click(find(c_validity, "UiButton"));
        QTRY_VERIFY(named(window(), "calendar") && named(window(), "calendar")->hasActiveFocus());
        picture("calendar");
        type({"Next"_s, "Right"_s, "Return"_s});
        QTRY_COMPARE(m_station->records.record("left bench"_s)->validityDate(), "2027-04-02"_s);

        QTRY_VERIFY(find(c_validity, "UiButton")->hasActiveFocus());
        type({"Tab"_s, "Up"_s});
        QTRY_COMPARE(m_station->records.record("left bench"_s)->stbExpiredDelay(), 21);
        click(find(c_alert, "SpinBox")
                  ->property("up")
                  .value<QObject*>()
                  ->property("indicator")
                  .value<QQuickItem*>());
        QTRY_COMPARE(m_station->records.record("left bench"_s)->stbExpiredDelay(), 28);

        QCOMPARE(contentOf(m_file), c_records);
        close();
        QTRY_VERIFY(!window().isVisible());
        QVERIFY(!m_station->panel->page());
        QCOMPARE(m_folder->names(), QStringList{"records.json"_s});

        openStation("left bench"_s, MaintenancePanel::Theme::Dark);
        picture("dark");
        QCOMPARE(find(c_serialNumber, "TextField")->property("text").toString(), "Z-8"_s);
        QCOMPARE(find(c_validity, "UiButton")->property("text").toString(),
                 QLocale().toString(QDate(2027, 4, 2), QLocale::LongFormat));
        QCOMPARE(find(c_alert, "SpinBox")->property("displayText").toString(), "28 days"_s);
        auto const other = m_station->records.record("right bench"_s);
        QCOMPARE(other->serialNumber(), "ZRT-0043"_s);
        QVERIFY(!other->validityDate().isNull());
        QCOMPARE(other->stbExpiredDelay(), 7);
    }

    void calendarByMouse()
    {
        openStation("left bench"_s);
        click(find(c_validity, "UiButton"));
        QTRY_VERIFY(named(window(), "calendar") && named(window(), "calendar")->hasActiveFocus());
        click(named(window(), "next month"));
        click(named(window(), "day30"));
        QTRY_COMPARE(m_station->records.record("left bench"_s)->validityDate(), "2027-04-30"_s);
    }

    void heldKey()
    {
        openStation("left bench"_s);
        find(c_validity, "UiButton")->forceActiveFocus();
        // It opens the calendar; what follows of it picks nothing.
        type({"Return"_s});
        QTRY_VERIFY(named(window(), "calendar") && named(window(), "calendar")->hasActiveFocus());
        repeat(Qt::Key_Return);
        QTest::qWait(100);
        QVERIFY(named(window(), "calendar"));
        QVERIFY(!m_station->application.isConfigChanged());

        // It picks; what follows of it does not open the calendar again.
        type({"Right"_s, "Return"_s});
        QTRY_VERIFY(find(c_validity, "UiButton")->hasActiveFocus() && !named(window(), "calendar"));
        repeat(Qt::Key_Return);
        QTest::qWait(100);
        QVERIFY(!named(window(), "calendar"));
    }

    void alert()
    {
        openStation("right bench"_s);
        QVERIFY(!named(window(), "alert"));
        // The page shows it like a permanent one.
        openStation("new tool"_s);
        QVERIFY(!m_station->panel->isUrgent());
        QTRY_VERIFY(named(window(), "alert"));
        QCOMPARE(named(window(), "alert")->property("text").toString(), "no maintenance validity is set"_s);
        openStation("old tool"_s);
        QVERIFY(m_station->panel->isUrgent());
        QTRY_VERIFY(named(window(), "alert"));
        QVERIFY(named(window(), "alert")->property("text").toString().contains("overdue"_s));
        picture("overdue");

        // It goes as soon as there is no reason for it.
        click(find(c_validity, "UiButton"));
        QTRY_VERIFY(named(window(), "permanent"));
        click(named(window(), "permanent"));
        QTRY_VERIFY(!named(window(), "alert"));
    }

    void manyComplaints()
    {
        QByteArray tools;
        for (int i = 0; i < 100; ++i)
            tools += "\"tool " + QByteArray::number(i) + "\": 5, ";
        m_folder.emplace();
        m_file = m_folder->write("records.json"_s, "{\"tools\": {" + tools + "\"left bench\": {}}}");
        openStation("left bench"_s);
        QTRY_VERIFY(named(window(), "problem"));
        QVERIFY(m_station->panel->problem().endsWith("\nand 97 more"_s));
        // They leave room for the page.
        auto* const field = find(c_serialNumber, "TextField");
        QVERIFY(field->mapToScene(QPointF(0, field->height())).y() < window().height());
    }

    void closeWithoutEdits()
    {
        openStation("left bench"_s);
        close();
        QTRY_VERIFY(!window().isVisible());
        QCOMPARE(contentOf(m_file), c_records);
    }

    void failedSave()
    {
        openStation("left bench"_s);
        QVERIFY(m_station->panel->problem().isEmpty());
        click(find(c_serialNumber, "TextField"));
        type({"End"_s, "x"_s});
        QTRY_COMPARE(m_station->records.record("left bench"_s)->serialNumber(), "ZRT-0042x"_s);

        // Somebody breaks the file meanwhile: it must not be written over.
        QByteArray const broken("{\"tools\": ");
        m_folder->write("records.json"_s, broken);
        close();
        QTRY_VERIFY(m_station->panel->mayDiscard());
        QVERIFY(window().isVisible());
        QVERIFY2(m_station->panel->problem().contains(m_file), qPrintable(m_station->panel->problem()));
        QCOMPARE(contentOf(m_file), broken);
        // The page is back, with what was edited.
        QCOMPARE(find(c_serialNumber, "TextField")->property("text").toString(), "ZRT-0042x"_s);
        picture("problem");

        // And mends it.
        m_folder->write("records.json"_s, c_records);
        close();
        QTRY_VERIFY(!window().isVisible());
        QCOMPARE(MaintenanceRecords(m_file).record("left bench"_s)->serialNumber(), "ZRT-0042x"_s);
    }

    void discard()
    {
        openStation("left bench"_s);
        click(find(c_serialNumber, "TextField"));
        type({"End"_s, "x"_s});
        QTRY_VERIFY(m_station->application.isConfigChanged());
        QVERIFY(QFile::remove(m_file) && QDir().mkdir(m_file));
        close();
        QTRY_VERIFY(m_station->panel->mayDiscard());
        QVERIFY(QDir().rmdir(m_file));
        m_folder->write("records.json"_s, c_records);

        click(named(window(), "discard"));
        QTRY_VERIFY(!window().isVisible());
        m_station.reset();
        QCOMPARE(contentOf(m_file), c_records);
    }

    void twoPanels()
    {
        openStation("left bench"_s);
        MaintenancePanel second(m_library->plugin(), "left bench"_s, m_station->records,
                                m_station->application, MaintenancePanel::Theme::Light);
        click(find(c_serialNumber, "TextField"));
        type({"End"_s, "1"_s});
        QTRY_VERIFY(m_station->application.isConfigChanged());
        second.window().setPosition(0, 0);
        second.window().resize(800, 600);
        second.window().show();
        activate(second.window());
        auto* const column =
            second.page()->findChild<QQuickItem*>("maintenance_panel_tool_zrt.idColumn"_s + c_alert);
        auto* const box = offspring(column, "SpinBox");
        box->forceActiveFocus();
        type({"Down"_s});
        QTRY_COMPARE(m_station->records.record("left bench"_s)->stbExpiredDelay(), 7);

        // Each saves what was edited on it; neither undoes the other's.
        QVERIFY(second.close());
        second.window().hide();
        QVERIFY(m_station->panel->close());
        MaintenanceRecords saved(m_file);
        QCOMPARE(saved.record("left bench"_s)->serialNumber(), "ZRT-00421"_s);
        QCOMPARE(saved.record("left bench"_s)->stbExpiredDelay(), 7);
    }

    void smallScreen()
    {
        openStation("left bench"_s);
        window().resize(480, 272);
        // The keyboard reaches what does not fit, and brings it into view.
        auto* const box = find(c_alert, "SpinBox");
        for (int i = 0; i < 10 && !box->hasActiveFocus(); ++i) {
            auto const* const before = window().activeFocusItem();
            type({"Tab"_s});
            QTRY_VERIFY(window().activeFocusItem() != before);
        }
        QVERIFY(box->hasActiveFocus());
        QTRY_VERIFY(box->mapToScene(QPointF(0, box->height())).y() <= window().height());
        QVERIFY(box->mapToScene(QPointF(0, 0)).y() >= 0);
        picture("small");
        click(find(c_validity, "UiButton"));
        QTRY_VERIFY(named(window(), "calendar") && named(window(), "calendar")->hasActiveFocus());
        auto* const cancel = named(window(), "cancel");
        QVERIFY(cancel->mapToScene(QPointF(0, cancel->height())).y() <= window().height());
        picture("small_calendar");
    }

    void program()
    {
        m_folder.emplace();
        m_file = m_folder->write("records.json"_s, c_records);
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
        QCOMPARE(MaintenanceRecords(m_file).record("right bench"_s)->serialNumber(), "ZRT-0043x"_s);
    }

private:
    /// A workstation with the window of one tool on the screen.
    struct Station
    {
        Station(DAbstractPlugin const& plugin, QString const& file, QString const& tool,
                MaintenancePanel::Theme theme = MaintenancePanel::Theme::Light)
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

    QQuickItem* find(QString const& suffix, char const* kind) const
    {
        auto* const part = m_station->panel->page()->findChild<QQuickItem*>(
            "maintenance_panel_tool_zrt.idColumn"_s + suffix);
        return offspring(part, kind);
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

    void close() { click(named(window(), "close")); }

    void picture(char const* name) const
    {
        QImage const image = window().grabWindow();
        QVERIFY(image.save(QStringLiteral(PICTURES_DIR "/%1.png").arg(QLatin1String(name))));
    }

    void openStation(QString const& tool, MaintenancePanel::Theme theme = MaintenancePanel::Theme::Light)
    {
        if (!m_folder) {
            m_folder.emplace();
            m_file = m_folder->write("records.json"_s, c_records);
        }
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
