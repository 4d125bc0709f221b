#include "literals.h"
#include "message_capture.h"
#include "shipped_plugin.h"

#include <QFile>
#include <QProcess>
#include <QTest>

namespace
{

#ifdef QT_NO_DEBUG
constexpr bool c_hasTraces = false;
#else
constexpr bool c_hasTraces = true;
#endif

QString address(void const* object)
{
    return "0x%1"_s.arg(reinterpret_cast<quintptr>(object), 8, 16, QLatin1Char('0'));
}

// Executes init; the last reply decides.
void runInit(QVariantMap const& lastReply, QString* pluginAddress, QString* commandAddress)
{
    WorkingCommand init("init"_s);
    *pluginAddress = address(init.instance.get());
    *commandAddress = address(init.command.dynamicCast<QObject>().data());
    QVERIFY(init.execute());
    init.reply({});
    init.reply({});
    init.reply(lastReply);
}

} // namespace

/// What the plugin prints: a debug build traces its work, a release build prints errors and nothing else.
class TestPluginTraces : public QObject
{
    Q_OBJECT

private slots:
    // First, while nothing else has loaded the library.
    void unloads()
    {
        auto const isMapped = [] {
            QFile maps("/proc/self/maps"_s);
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

    void goodRun()
    {
        QString plugin;
        QString command;
        MessageCapture const messages;
        runInit({{"doneOk"_s, true}}, &plugin, &command);

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
        QCOMPARE(countOf({"DCmdInitZrt"_s, command, "{\"doneOk\": true}"_s}), 1);
        QCOMPARE(countOf({"created"_s, plugin, "Plugin Tool ZRT"_s}), 1);
        QCOMPARE(countOf({"destroyed"_s, plugin, "Plugin Tool ZRT"_s}), 1);
    }

    void badRun()
    {
        QString plugin;
        QString command;
        MessageCapture const messages;
        runInit({}, &plugin, &command);

        QCOMPARE(messages.of(QtCriticalMsg).size(), 1);
        QCOMPARE(messages.lines.size() - messages.of(QtDebugMsg).size(), 1);
        QCOMPARE(messages.of(QtDebugMsg).isEmpty(), !c_hasTraces);
    }

    void renderingIsCompiledIn()
    {
        QProcess nm;
        nm.start(QStringLiteral(NM_PROGRAM),
                 {"--dynamic"_s, "--demangle"_s, "--undefined-only"_s, QStringLiteral(ZRT_PLUGIN_FILE)});
        QVERIFY(nm.waitForFinished());
        QCOMPARE(nm.exitCode(), 0);
        QByteArray const symbols = nm.readAllStandardOutput();
        QVERIFY(symbols.contains("getDate()"));
        QCOMPARE(symbols.contains("convVariantMapToString"), c_hasTraces);
    }
};

QTEST_GUILESS_MAIN(TestPluginTraces)
#include "tst_plugin_traces.moc"
