#include "message_capture.h"
#include "working_command.h"

#include <utilities/date_source.h>

#include <QProcess>
#include <QRegularExpression>
#include <QThread>

namespace
{

#ifdef QT_NO_DEBUG
constexpr bool c_hasTraces = false;
#else
constexpr bool c_hasTraces = true;
#endif

QString shown(QObject const* object)
{
    QString text;
    QDebug(&text).nospace() << object;
    return text;
}

QString address(void const* object)
{
    return "0x%1"_s.arg(reinterpret_cast<quintptr>(object), 8, 16, QLatin1Char('0'));
}

/// What is logged where nothing but the text tells of the place.
void checkContext(MessageCapture::Line const& line)
{
    QCOMPARE(line.category, QByteArray("default"));
    QVERIFY(line.file.isNull());
    QVERIFY(line.function.isNull());
    QCOMPARE(line.line, 0);
}

} // namespace

/// What the plugin logs: a debug build traces its work, a release build writes errors and little else.
class TestPluginLog : public QObject
{
    Q_OBJECT

private slots:
    void errorLine()
    {
        setDateSource([] { return QDateTime(QDate(2026, 3, 9), QTime(14, 5, 59, 120)); });
        WorkingCommand stop("stopTightening"_s);
        stop.execute();
        MessageCapture const log;
        stop.command->setReply(stop.order.posted.last().id, {});
        setDateSource({});

        auto const errors = log.of(QtCriticalMsg);
        QCOMPARE(errors.size(), 1);
        checkContext(errors[0]);
        // The source path begins where the library was built; the rest of the line is laid down to the blank.
        QString const head = "\n \"2026-03-09 14:05:59.120\" ;\t Thread = %1 ;\t This = %2 ;\t "_s.arg(
            shown(QThread::currentThread()), shown(&stop.object()));
        QString const tail =
            QRegularExpression::escape("plugins/p_tool_vesk_zrt/source/d_cmd_stopTightening.cpp"_s)
            + " ;\t \\d+ ;\t ERROR: Invalid reply format"_s;
        QRegularExpression const layout("^%1(.*/)?%2$"_s.arg(QRegularExpression::escape(head), tail));
        QVERIFY2(layout.match(errors[0].text).hasMatch(), qPrintable(errors[0].text));
    }

    void infoLine()
    {
        WorkingCommand listen("startListening"_s);
        listen.execute();
        MessageCapture const log;
        listen.command->setReply(listen.order.posted.last().id,
                                 {{"values"_s, QVariantMap{{"error"_s, 300}}}});
        QCOMPARE(log.lines.size(), 1);
        QCOMPARE(log.lines[0].type, QtInfoMsg);
        checkContext(log.lines[0]);
    }

    void traces()
    {
        QString plugin;
        QString command;
        MessageCapture const log;
        {
            WorkingCommand stop("stopTightening"_s);
            plugin = address(stop.instance.get());
            command = address(&stop.object());
            stop.order.execute(*stop.command);
            stop.command->setReply(stop.order.posted.last().id, {{"lockStatus"_s, 1}});
        }
        QStringList const pieces{"created.*%1.*Plugin Tool ZRT"_s.arg(plugin),
                                 "DCmdStopTightening.*%1.*\\{\"lockStatus\": 1\\}"_s.arg(command),
                                 "destroyed.*%1.*Plugin Tool ZRT"_s.arg(plugin)};
        QStringList lines;
        for (auto const& line : log.lines) {
            QCOMPARE(line.type, QtDebugMsg);
            lines += line.text;
        }
        for (auto const& piece : pieces)
            QCOMPARE(lines.filter(QRegularExpression(piece)).size(), c_hasTraces ? 1 : 0);
        QVERIFY(c_hasTraces || lines.isEmpty());
    }

    void whatTracesRenderIsCompiledIn()
    {
        QProcess nm;
        nm.start(QStringLiteral(NM_PROGRAM),
                 {"--dynamic"_s, "--demangle"_s, "--undefined-only"_s, QStringLiteral(ZRT_PLUGIN_FILE)});
        QVERIFY(nm.waitForFinished());
        QByteArray const symbols = nm.readAllStandardOutput();
        QVERIFY(symbols.contains("getDate()"));
        QCOMPARE(symbols.contains("convVariantMapToString"), c_hasTraces);
    }
};

QTEST_GUILESS_MAIN(TestPluginLog)
#include "tst_plugin_log.moc"
