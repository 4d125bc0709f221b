#include "child.h"
#include "shipped_plugin.h"

#include "maintenance/gui_setup.h"
#include "maintenance/page_document.h"

#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_element.h>

#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <qqml.h>

#include <cerrno>
#include <csignal>
#include <functional>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

QString const c_fine = "fine"_s;
QByteArray const c_backend = QByteArrayLiteral("import PlgLibToolZrt 1.0\nBeMaintenanceToolZrt {}");

/// The `application` of the page.
class Application : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE void updatePluginParameters(QString const& /*objectId*/, QVariantMap const& /*parameters*/) {}
    Q_INVOKABLE void saveMaintenanceToFile() {}
    Q_INVOKABLE void setConfigChanged() {}
};

/// From where to where the library is in memory.
struct Place
{
    quintptr begin = 0;
    quintptr end = 0;
};

Place place()
{
    Place found;
    auto const lines = contentOf("/proc/self/maps"_s).split('\n');
    for (auto const& line : lines) {
        if (!line.contains("libp_tool_vesk_zrt.so"))
            continue;
        auto const ends = line.left(line.indexOf(' ')).split('-');
        if (found.end == 0)
            found.begin = ends[0].toULongLong(nullptr, 16);
        found.end = ends[1].toULongLong(nullptr, 16);
    }
    return found;
}

/// Puts something else there.
void occupy(Place const& where)
{
    auto const page = static_cast<quintptr>(::sysconf(_SC_PAGESIZE));
    for (quintptr begin = where.begin; begin < where.end; begin += page) {
        if (::mmap(reinterpret_cast<void*>(begin), page, PROT_NONE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0)
                == MAP_FAILED
            && errno != EEXIST) // a sanitizer was quicker
            qFatal("the place cannot be taken");
    }
}

/// A host that really unloads the library, which Qt's loader does not do by itself.
class Host
{
public:
    Host() { m_plugin.loader().setLoadHints({}); }

    void load() { m_plugin.root(); }
    void unload()
    {
        if (!m_plugin.loader().unload() || ShippedPlugin::isMapped())
            qFatal("the library is still there");
    }
    std::unique_ptr<DAbstractPlugin> makeInstance() { return m_plugin.makeInstanceWithCommands(); }

    /// Lets a command work, and opens the page and closes it; fine, or what is wrong with it.
    QString use()
    {
        RecordingOrder order;
        auto const instance = makeInstance();
        auto const command = instance->commandPrototype("stopTightening"_s)->createCommand({});
        order.execute(*command);
        if (!command->setReply(order.posted.first().id, {{"lockStatus"_s, 1}}) || order.finishes.size() != 1)
            return "the command does not end"_s;

        QSharedPointer<DElement> record(new DElement);
        record->setSerialNumber("ZRT-0042"_s);
        DAbstractPluginBackend::setElementSource([record](QString const&) { return record; });
        Application application;
        QQmlEngine engine;
        engine.setOutputWarningsToStandardError(false);
        engine.rootContext()->setContextProperty("application"_s, &application);
        auto const document = pageDocument(*m_plugin.root(), "left bench"_s, "{a-tool}"_s);
        QQmlComponent component(&engine);
        component.setData(document.text, document.url);
        std::unique_ptr<QObject> const opened(component.create());
        if (!opened)
            return component.errorString();
        auto* const backend = opened->findChild<DAbstractPluginBackend*>();
        return backend->property("serialNumber") == QVariant("ZRT-0042"_s) ? c_fine
                                                                           : "another serial number"_s;
    }

private:
    ShippedPlugin m_plugin;
};

/// Makes what a document describes; fine, or what is wrong with it.
QString make(QQmlEngine& engine, QByteArray const& document)
{
    QQmlComponent component(&engine);
    component.setData(document, QUrl());
    if (component.isError())
        return component.errors().constFirst().description();
    delete component.create();
    return c_fine;
}

QString makeInNewEngine(QByteArray const& document)
{
    QQmlEngine engine;
    return make(engine, document);
}

QString clearTypes(Host& host)
{
    host.load();
    makeInNewEngine(c_backend);
    host.unload();
    qmlClearTypeRegistrations();
    return makeInNewEngine(c_backend);
}

/// What a host does in a process of its own; what it returns.
using Use = QString (*)(Host&);
using Misuse = void (*)(Host&);

QString wordsOf(std::function<QString(Host&)> const& use)
{
    return wordsOfChild([&use](auto const& say) {
        ::signal(SIGSEGV, SIG_DFL); // without the test framework's long stories
        Host host;
        say(use(host));
    });
}

} // namespace

Q_DECLARE_METATYPE(Use)
Q_DECLARE_METATYPE(Misuse)

/// What a host may do that really unloads the library, and what it may not. Each case has a process of its
/// own.
class TestUnloading : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { setUpGui(); }

    void mayDo_data()
    {
        QTest::addColumn<Use>("use");
        QTest::addColumn<QString>("words");
        auto const row = [](char const* name, Use use, QString const& words = c_fine) {
            QTest::newRow(name) << use << words;
        };
        row("load again", [](Host& host) {
            QString words = host.use();
            for (int i = 0; i < 3 && words == c_fine; ++i) {
                host.unload();
                words = host.use();
            }
            return words;
        });
        row("load again elsewhere", [](Host& host) {
            host.use();
            Place const before = place();
            host.unload();
            occupy(before);
            QString const words = host.use();
            return place().begin != before.begin ? words : "loaded to the same place"_s;
        });
        row("keep an engine without its types", [](Host& host) {
            host.load();
            QQmlEngine engine;
            make(engine, "import QtQml 2.15\nQtObject {}");
            host.unload();
            return make(engine, "import QtQml 2.15\nTimer {}");
        });
        row("make a new engine", [](Host& host) {
            host.use();
            host.unload();
            return makeInNewEngine("import QtQuick 2.15\nimport QtQuick.Controls 2.15\nButton {}");
        });
        row("clear types", clearTypes, "module \"PlgLibToolZrt\" is not installed"_s);
        row("clear types, load again", [](Host& host) {
            clearTypes(host);
            host.load();
            return makeInNewEngine(c_backend);
        });
    }

    void mayDo()
    {
        QFETCH(Use, use);
        QTEST(wordsOf(use), "words");
    }

    void mayNotDo_data()
    {
        QTest::addColumn<Misuse>("misuse");
        auto const row = [](char const* name, Misuse misuse) { QTest::newRow(name) << misuse; };
        row("keep an instance", [](Host& host) {
            auto instance = host.makeInstance();
            host.unload();
            instance.reset();
        });
        row("keep a command", [](Host& host) {
            auto const instance = host.makeInstance();
            auto command = instance->commandPrototype("init"_s)->createCommand({});
            host.unload();
            command.reset();
        });
        row("keep texts", [](Host& host) {
            QStringList names = host.makeInstance()->commandNames();
            host.unload();
            names.clear();
        });
        row("make a type", [](Host& host) {
            host.load();
            host.unload();
            makeInNewEngine(c_backend);
        });
        row("keep a component", [](Host& host) {
            host.load();
            QQmlEngine engine;
            QQmlComponent component(&engine);
            component.setData(c_backend, QUrl());
            host.unload();
            delete component.create();
        });
        row("keep an engine with its types", [](Host& host) {
            host.load();
            auto engine = std::make_unique<QQmlEngine>();
            make(*engine, "import QtQml 2.15\nimport PlgLibToolZrt 1.0\n"
                          "BeMaintenanceToolZrt { property var first: statusChannelsModel.item(0) }");
            host.unload();
            engine.reset();
        });
        row("value of its types, loaded elsewhere", [](Host& host) {
            host.load();
            Place const before = place();
            host.unload();
            occupy(before);
            host.load();
            // The meta-type is still the first library's.
            QObject* const none = nullptr;
            QVariant value(QMetaType::type("BeMaintenanceToolZrt*"), &none);
            value.clear();
        });
    }

    void mayNotDo()
    {
        QFETCH(Misuse, misuse);
        // If one of them becomes harmless, docs/your-own-host.md may allow it.
        QString const words = wordsOf([misuse](Host& host) {
            misuse(host);
            return c_fine;
        });
        QVERIFY2(words.startsWith("the child failed"_s), qPrintable(words));
    }

    // Comes last: the processes of the others are copies of this one.
    void endsWell()
    {
        Host host;
        QCOMPARE(host.use(), c_fine);
        DAbstractPluginBackend::setElementSource({});
        host.unload();
    }
};

QTEST_MAIN(TestUnloading)
#include "tst_unloading.moc"
