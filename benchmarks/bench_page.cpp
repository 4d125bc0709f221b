// The maintenance page, from its document to the first frame: how far it is from a page of the same
// components with nothing behind it, and how often it looks at what stands behind it.

#include "be_maintenance_plugin.h"
#include "loaded_tool.h"
#include "measure.h"

#include "maintenance/gui_setup.h"
#include "maintenance/maintenance_panel.h"
#include "maintenance/maintenance_records.h"
#include "maintenance/page_document.h"
#include "maintenance/panel_application.h"

#include <plugin_management/d_element.h>

#include <QFile>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <utility>

namespace
{

using Clock = std::chrono::steady_clock;

/// How often pages are opened before anybody looks; the first one loads Qt's controls.
constexpr int c_warmUpRounds = 3;

QString const c_tool = QStringLiteral("left bench");
QString const c_serialNumber = QStringLiteral("ZRT-2026-0042");

/// A workstation with the record of one tool, and the window in which pages are shown.
struct Station
{
    explicit Station(QString const& folder) : records(folder + QLatin1String("/records.json")), pages(records)
    {
        fillIn();
        QObject::connect(&window, &QQuickWindow::frameSwapped, &window, [this] { ++frames; });
        window.resize(640, 480);
        window.show();
        while (!window.isExposed())
            QCoreApplication::processEvents();
    }

    DElement& record() { return *records.record(c_tool); }
    void fillIn()
    {
        record().setSerialNumber(c_serialNumber);
        record().setValidityDate(QStringLiteral("2027-03-31"));
        record().setStbExpiredDelay(14);
    }

    MaintenanceRecords records;
    PanelApplication pages;
    QQuickWindow window;
    int frames = 0; ///< drawn in the window so far
};

PageDocument shippedPage(Station& station)
{
    return pageDocument(shippedPlugin(), c_tool, station.pages.addTool(c_tool));
}

PageDocument pageWithoutBackend()
{
    QFile file(QStringLiteral(ZRT_PAGE_WITHOUT_BACKEND));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
    QByteArray text = file.readAll();
    text.replace("{OBJECT_NAME}", inQmlString(c_tool));
    return {text, QUrl(QStringLiteral("qrc:///page_without_backend.qml"))};
}

/// A page in the window, made by an engine of its own, as in the workplace. With the constructor's end its
/// first frame is drawn.
class OpenPage
{
public:
    OpenPage(PageDocument const& document, Station& station) : m_station(station)
    {
        m_engine.setOutputWarningsToStandardError(false);
        QObject::connect(&m_engine, &QQmlEngine::warnings, &m_engine, [](QList<QQmlError> const& warnings) {
            for (auto const& warning : warnings) {
                if (!isInherentBindingLoop(warning.toString()))
                    qFatal("%s", qPrintable(warning.toString()));
            }
        });
        m_engine.rootContext()->setContextProperty(QStringLiteral("application"), &station.pages);
        QQmlComponent component(&m_engine);
        component.setData(document.text, document.url);
        m_item.reset(qobject_cast<QQuickItem*>(component.create()));
        if (!m_item)
            qFatal("%s", qPrintable(component.errorString()));
        m_item->setParentItem(station.window.contentItem());
        m_item->setWidth(station.window.width());
        draw();
    }

    QQuickItem& item() const { return *m_item; }

    /// Draws what has changed: at once, where the window would wait for its screen.
    void draw() const
    {
        int const before = m_station.frames;
        QEvent now(QEvent::UpdateRequest);
        QCoreApplication::sendEvent(&m_station.window, &now);
        if (m_station.frames != before + 1)
            qFatal("the page was not drawn");
    }
    /// Draws all of it, changed or not.
    void drawAgain() const
    {
        auto const items = m_item->findChildren<QQuickItem*>();
        for (auto* const item : items) {
            item->polish();
            if (item->flags() & QQuickItem::ItemHasContents)
                item->update();
        }
        draw();
    }

private:
    Station& m_station;
    QQmlEngine m_engine;
    std::unique_ptr<QQuickItem> m_item;
};

double timeToOpen(PageDocument const& document, Station& station)
{
    auto const begin = Clock::now();
    OpenPage const page(document, station);
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// How many items a page is made of.
int items(PageDocument const& document, Station& station)
{
    return OpenPage(document, station).item().findChildren<QQuickItem*>().size();
}

// Opens a page until all is loaded that stays, and has callgrind write down what it takes from then on.
void warmUp(char const* name, PageDocument const& document, Station& station)
{
    for (int round = 0; round < c_warmUpRounds; ++round)
        OpenPage const page(document, station);
    if (RUNNING_ON_VALGRIND) {
        std::string const label = std::string("1 ") + name;
        CALLGRIND_ZERO_STATS;
        OpenPage const page(document, station);
        CALLGRIND_DUMP_STATS_AT(label.c_str());
    }
}

/// How often each value on the page was read, and how often its backend has told that they may have changed:
/// with each read, and with each edit.
struct Account
{
    int serialNumber = 0;
    int validity = 0;
    int daysBeforeExpiration = 0;
    int notifications = 0;
};

/// The plugin's backend, with an account of what is read of it.
class WatchedBackend : public BeMaintenanceToolZrt
{
    Q_OBJECT
    Q_PROPERTY(QString serialNumber READ watchedSerialNumber NOTIFY channelsModelChanged FINAL)
    Q_PROPERTY(QString validity READ watchedValidity NOTIFY channelsModelChanged FINAL)
    Q_PROPERTY(int daysBeforeExpiration READ watchedDaysBeforeExpiration NOTIFY channelsModelChanged FINAL)

public:
    WatchedBackend()
    {
        connect(this, &WatchedBackend::channelsModelChanged, [] { ++s_account.notifications; });
    }

    QString watchedSerialNumber()
    {
        ++s_account.serialNumber;
        return serialNumber();
    }
    QString watchedValidity()
    {
        ++s_account.validity;
        return validity();
    }
    int watchedDaysBeforeExpiration()
    {
        ++s_account.daysBeforeExpiration;
        return daysBeforeExpiration();
    }

    /// What has come together since this was asked last.
    static Account takeAccount() { return std::exchange(s_account, Account()); }

private:
    inline static Account s_account;
};

// How often each value was read since the last time, for each round of what was done since then.
void countReads(benchmark::State& state, std::string const& what, int edits = 0, double rounds = 1)
{
    auto const account = WatchedBackend::takeAccount();
    if (account.serialNumber + account.validity + account.daysBeforeExpiration + edits
        != account.notifications)
        qFatal("something reads the backend unseen");
    std::string const reads = "reads_" + what;
    state.counters[reads + "_serialNumber"] = account.serialNumber / rounds;
    state.counters[reads + "_validity"] = account.validity / rounds;
    state.counters[reads + "_daysBeforeExpiration"] = account.daysBeforeExpiration / rounds;
}

QQuickItem& textField(QQuickItem const& page)
{
    auto const items = page.findChildren<QQuickItem*>();
    auto const found = std::find_if(items.begin(), items.end(),
                                    [](QQuickItem const* item) { return item->inherits("QQuickTextField"); });
    if (found == items.end())
        qFatal("the page has no text field");
    return **found;
}

// What an open page reads until its first frame, and then with each frame, when its width changes, and when
// the operator types.
void repaint(benchmark::State& state, PageDocument document, Station& station)
{
    document.text.replace("import PlgLibToolZrt 1.0", "import WatchedBackend 1.0");
    WatchedBackend::takeAccount();
    OpenPage const page(document, station);
    countReads(state, "first_frame");
    for (auto const _ : state) {
        static_cast<void>(_);
        page.drawAgain();
    }
    countReads(state, "per_repaint", 0, static_cast<double>(state.iterations()));
    page.item().setWidth(page.item().width() / 2);
    page.drawAgain();
    countReads(state, "per_resize");
    QKeyEvent key(QEvent::KeyPress, Qt::Key_X, Qt::NoModifier, QStringLiteral("x"));
    QCoreApplication::sendEvent(&textField(page.item()), &key);
    if (station.record().serialNumber() == c_serialNumber)
        qFatal("the edit has not reached the record");
    page.drawAgain();
    countReads(state, "per_edit", 1);
    page.drawAgain();
    countReads(state, "after_edit");
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir const folder;
    // Where the engine keeps pages that it has compiled: not among the user's.
    qputenv("XDG_CACHE_HOME", folder.path().toLocal8Bit());
    QGuiApplication const application(argc, argv);
    setUpGui();
    Station station(folder.path());
    auto const plugin = shippedPage(station);
    auto const baseline = pageWithoutBackend();
    if (items(plugin, station) != items(baseline, station))
        qFatal("the pages are not made of the same components");
    warmUp("page/1/plugin", plugin, station);
    warmUp("page/1/baseline", baseline, station);
    measure::addClocked("page/1/plugin", [&] { return timeToOpen(plugin, station); });
    measure::addClocked("page/1/baseline", [&] { return timeToOpen(baseline, station); });
    qmlRegisterType<WatchedBackend>("WatchedBackend", 1, 0, "BeMaintenanceToolZrt");
    benchmark::RegisterBenchmark("repaint/1/plugin", [&](benchmark::State& state) {
        repaint(state, plugin, station);
        station.fillIn();
    })->Unit(benchmark::kMillisecond);
    return measure::run(argc, argv);
}

#include "bench_page.moc"
