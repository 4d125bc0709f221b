#include "message_capture.h"
#include "shipped_plugin.h"

#include <QFile>
#include <QProcess>
#include <QTest>

/// What the plugin prints: a debug build traces its work, a release build prints errors and nothing else.
class TestPluginTraces : public QObject
{
    Q_OBJECT

private slots:
    void unloads(); // first, while nothing else has loaded the library
    void goodRun();
    void badRun();
    void renderingIsCompiledIn();
};

namespace
{

#ifdef QT_NO_DEBUG
constexpr bool c_hasTraces = false;
#else
constexpr bool c_hasTraces = true;
#endif

QString address(void const* object)
{
    return QStringLiteral("0x%1").arg(reinterpret_cast<quintptr>(object), 8, 16, QLatin1Char('0'));
}

// Executes init; the last reply decides.
void runInit(QVariantMap const& lastReply, QString* pluginAddress, QString* commandAddress)
{
    WorkingCommand init(QStringLiteral("init"));
    *pluginAddress = address(init.instance.get());
    *commandAddress = address(init.command.dynamicCast<QObject>().data());
    QVERIFY(init.execute());
    init.reply({});
    init.reply({});
    init.reply(lastReply);
}

} // namespace

void TestPluginTraces::unloads()
{
    auto const isMapped = [] {
        QFile maps(QStringLiteral("/proc/self/maps"));
        return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("libp_tool_vesk_zrt.so");
    };
    QVERIFY(!isMapped());
    QPluginLoader loader(QStringLiteral(ZRT_PLUGIN_FILE));
    loader.setLoadHints({}); // Qt keeps a library by default
    auto* const root = qobject_cast<DAbstractPlugin*>(loader.instance());
    QVERIFY2(root, qPrintable(loader.errorString()));
    std::unique_ptr<IPlugin>(root->createInstance(QUuid())).reset();
    QVERIFY(isMapped());
    QVERIFY(loader.unload());
    QVERIFY(!isMapped());
}

void TestPluginTraces::goodRun()
{
    QString plugin;
    QString command;
    MessageCapture const messages;
    runInit({{QStringLiteral("doneOk"), true}}, &plugin, &command);

    if (!c_hasTraces) {
        QCOMPARE(messages.lines.size(), 0);
        return;
    }
    QCOMPARE(messages.of(QtDebugMsg).size(), messages.lines.size());
    auto const countOf = [&messages](QStringList const& pieces) {
        int count = 0;
        for (auto const& line : messages.lines) {
            bool all = true;
            for (auto const& piece : pieces)
                all = all && line.text.contains(piece);
            count += all ? 1 : 0;
        }
        return count;
    };
    QCOMPARE(countOf({QStringLiteral("DCmdInitZrt"), command, QStringLiteral("{\"doneOk\": true}")}), 1);
    QCOMPARE(countOf({QStringLiteral("created"), plugin, QStringLiteral("Plugin Tool ZRT")}), 1);
    QCOMPARE(countOf({QStringLiteral("destroyed"), plugin, QStringLiteral("Plugin Tool ZRT")}), 1);
}

void TestPluginTraces::badRun()
{
    QString plugin;
    QString command;
    MessageCapture const messages;
    runInit({}, &plugin, &command);

    QCOMPARE(messages.of(QtCriticalMsg).size(), 1);
    QCOMPARE(messages.lines.size() - messages.of(QtDebugMsg).size(), 1);
    QCOMPARE(messages.of(QtDebugMsg).isEmpty(), !c_hasTraces);
}

void TestPluginTraces::renderingIsCompiledIn()
{
    QProcess nm;
    nm.start(QStringLiteral(NM_PROGRAM),
             {QStringLiteral("--dynamic"), QStringLiteral("--demangle"), QStringLiteral("--undefined-only"),
              QStringLiteral(ZRT_PLUGIN_FILE)});
    QVERIFY(nm.waitForFinished());
    QCOMPARE(nm.exitCode(), 0);
    QByteArray const symbols = nm.readAllStandardOutput();
    QVERIFY(symbols.contains("getDate()"));
    QCOMPARE(symbols.contains("convVariantMapToString"), c_hasTraces);
}

QTEST_GUILESS_MAIN(TestPluginTraces)
#include "tst_plugin_traces.moc"
