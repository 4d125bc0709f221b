#include "child.h"
#include "literals.h"
#include "message_capture.h"
#include "scratch_folder.h"
#include "shipped_plugin.h"

#include "maintenance/gui_setup.h"
#include "maintenance/page_document.h"

#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_element.h>

#include <QMetaType>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QtTest>
#include <qqml.h>

#include <cerrno>
#include <csignal>
#include <memory>

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

    DAbstractPlugin& root() { return *m_plugin.root(); }
    std::unique_ptr<DAbstractPlugin> makeInstance()
    {
        auto instance = m_plugin.makeInstance(QUuid::createUuid());
        instance->initPluginCommands();
        return instance;
    }
    void unload()
    {
        if (!m_plugin.loader().unload() || place().end != 0)
            qFatal("the library is still there");
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
    std::unique_ptr<QObject> const object(component.create());
    return c_fine;
}

/// Opens the page and closes it; fine, or what is wrong with it.
QString page(Host& host)
{
    QSharedPointer<DElement> record(new DElement);
    record->setSerialNumber("ZRT-0042"_s);
    DAbstractPluginBackend::setElementSource([record](QString const&) { return record; });
    Application application;
    QQmlEngine engine;
    engine.setOutputWarningsToStandardError(false);
    engine.rootContext()->setContextProperty("application"_s, &application);
    auto const document = pageDocument(host.root(), "left bench"_s, "{a-tool}"_s);
    QQmlComponent component(&engine);
    component.setData(document.text, document.url);
    std::unique_ptr<QObject> const opened(component.create());
    if (!opened)
        return component.errorString();
    auto* const backend = opened->findChild<DAbstractPluginBackend*>();
    if (backend->property("serialNumber") != QVariant("ZRT-0042"_s))
        return "another serial number"_s;
    return c_fine;
}

/// Lets all commands work; fine, or which does not.
QString commands(Host& host)
{
    MessageCapture const log; // not everything is a good reply to everything
    auto const instance = host.makeInstance();
    auto const names = instance->commandNames();
    // As many as when the library was first loaded.
    static int const expected = names.size();
    if (names.isEmpty() || names.size() != expected)
        return "%1 commands"_s.arg(names.size());
    for (auto const& name : names) {
        RecordingOrder order;
        auto const command = instance->commandPrototype(name)->createCommand({});
        if (!order.execute(*command) || order.posted.isEmpty())
            return name;
        command->setReply(order.posted.first().id, {{"doneOk"_s, true}});
        bool success = true;
        command->finishTheCommand(success);
    }
    return c_fine;
}

QString everything(Host& host)
{
    QString const ofCommands = commands(host);
    return ofCommands == c_fine ? page(host) : ofCommands;
}

using Step = QString (*)(Host&);

// What a host may do.

QString loadAgain(Host& host)
{
    for (int i = 0; i < 3; ++i) {
        QString words = everything(host);
        if (words != c_fine)
            return words;
        host.unload();
    }
    return everything(host);
}

QString loadAgainElsewhere(Host& host)
{
    everything(host);
    Place const before = place();
    host.unload();
    occupy(before);
    QString const words = everything(host);
    return place().begin != before.begin ? words : "loaded to the same place"_s;
}

QString keepOtherEngine(Host& host)
{
    host.root();
    QQmlEngine engine;
    make(engine, "import QtQml 2.15\nQtObject {}");
    host.unload();
    return make(engine, "import QtQml 2.15\nTimer {}");
}

QString newEngine(Host& host)
{
    page(host);
    host.unload();
    QQmlEngine engine;
    return make(engine, "import QtQuick 2.15\nimport QtQuick.Controls 2.15\nButton {}");
}

QString clearTypes(Host& host)
{
    host.root();
    {
        QQmlEngine engine;
        make(engine, c_backend);
    }
    host.unload();
    qmlClearTypeRegistrations();
    QQmlEngine engine;
    return make(engine, c_backend);
}

QString clearTypesLoadAgain(Host& host)
{
    clearTypes(host);
    host.root();
    QQmlEngine engine;
    return make(engine, c_backend);
}

// What it may not do.

QString keepInstance(Host& host)
{
    auto instance = host.makeInstance();
    host.unload();
    instance.reset();
    return c_fine;
}

QString keepTexts(Host& host)
{
    QStringList names = host.makeInstance()->commandNames();
    host.unload();
    names.clear();
    return c_fine;
}

QString keepCommand(Host& host)
{
    auto instance = host.makeInstance();
    auto command = instance->commandPrototype("init"_s)->createCommand({});
    host.unload();
    command.reset();
    return c_fine;
}

QString makeType(Host& host)
{
    host.root();
    host.unload();
    QQmlEngine engine;
    return make(engine, c_backend);
}

QString keepComponent(Host& host)
{
    host.root();
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData(c_backend, QUrl());
    host.unload();
    delete component.create();
    return c_fine;
}

QString keepEngine(Host& host)
{
    host.root();
    {
        QQmlEngine engine;
        make(engine, "import QtQml 2.15\nimport PlgLibToolZrt 1.0\n"
                     "BeMaintenanceToolZrt { property var first: statusChannelsModel.item(0) }");
        host.unload();
    }
    return c_fine;
}

QString keepValue(Host& host)
{
    host.root();
    Place const before = place();
    host.unload();
    occupy(before);
    host.root();
    // The meta-type is still the first library's.
    QObject* const none = nullptr;
    QVariant value(QMetaType::type("BeMaintenanceToolZrt*"), &none);
    value.clear();
    return c_fine;
}

} // namespace

Q_DECLARE_METATYPE(Step)

/// What a host may do that really unloads the library, and what it may not. Each case has a process of its
/// own.
class TestUnloading : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { setUpGui(); }

    void mayDo_data()
    {
        QTest::addColumn<Step>("step");
        QTest::addColumn<QString>("words");
        QTest::newRow("load again") << Step(loadAgain) << c_fine;
        QTest::newRow("load again elsewhere") << Step(loadAgainElsewhere) << c_fine;
        QTest::newRow("engine without its types") << Step(keepOtherEngine) << c_fine;
        QTest::newRow("new engine") << Step(newEngine) << c_fine;
        QTest::newRow("clear types") << Step(clearTypes) << "module \"PlgLibToolZrt\" is not installed"_s;
        QTest::newRow("clear types, load again") << Step(clearTypesLoadAgain) << c_fine;
    }

    void mayDo()
    {
        QFETCH(Step, step);
        QFETCH(QString, words);
        QCOMPARE(wordsOfChild([step](auto const& say) {
                     Host host;
                     say(step(host));
                 }),
                 words);
    }

    void mayNotDo_data()
    {
        QTest::addColumn<Step>("step");
        QTest::newRow("keep an instance") << Step(keepInstance);
        QTest::newRow("keep a command") << Step(keepCommand);
        QTest::newRow("keep texts") << Step(keepTexts);
        QTest::newRow("make a type") << Step(makeType);
        QTest::newRow("keep a component") << Step(keepComponent);
        QTest::newRow("keep an engine with its types") << Step(keepEngine);
        QTest::newRow("value of its types, loaded elsewhere") << Step(keepValue);
    }

    void mayNotDo()
    {
        QFETCH(Step, step);
        // If one of them becomes harmless, docs/your-own-host.md may allow it.
        QString const words = wordsOfChild([step](auto const& say) {
            ::signal(SIGSEGV, SIG_DFL); // without the test framework's long stories
            Host host;
            say(step(host));
        });
        QVERIFY2(words.startsWith("the child failed"_s), qPrintable(words));
    }

    // Comes last: the processes of the others are copies of this one.
    void endsWell()
    {
        Host host;
        QCOMPARE(everything(host), c_fine);
        DAbstractPluginBackend::setElementSource({});
        host.unload();
    }
};

QTEST_MAIN(TestUnloading)
#include "tst_unloading.moc"
