#include "literals.h"
#include "message_capture.h"
#include "shipped_plugin.h"

#include <utilities/date_source.h>
#include <utilities/utilities.h>

#include <QDebug>
#include <QJsonValue>
#include <QTest>
#include <QThread>

namespace
{

QString const c_name = "init"_s;
QString const c_doneOk = "doneOk"_s;

QMap<QString, QVariant> map(QString const& key, QVariant const& value)
{
    return {{key, value}};
}

// Up to the point where the confirmation of the screen lock is waited for.
void executeUpToScreenLock(WorkingCommand& init)
{
    QVERIFY(init.execute());
    QVERIFY(init.reply({}));
    QVERIFY(init.reply({}));
    QCOMPARE(init.order.posted.last().instruction.name, "setLockScreen"_s);
}

QString shown(QObject const* object)
{
    QString text;
    QDebug(&text).nospace() << object;
    return text;
}

} // namespace

/// The command "init" of the shipped library, driven through the host's doors.
class TestCmdInit : public QObject
{
    Q_OBJECT

private slots:

    void firstInstruction()
    {
        WorkingCommand init(c_name);
        QVERIFY(init.execute());
        QCOMPARE(init.order.names(), QStringList{"getInfo"_s});
        QCOMPARE(init.order.finishes.size(), 0);
    }

    void chainWaitsForEachReply()
    {
        WorkingCommand init(c_name);
        QVERIFY(init.execute());
        QCOMPARE(init.order.names(), QStringList{"getInfo"_s});
        QVERIFY(init.reply({}));
        QCOMPARE(init.order.names(), (QStringList{"getInfo"_s, "setLock"_s}));
        QVERIFY(init.reply({}));
        QCOMPARE(init.order.names(), (QStringList{"getInfo"_s, "setLock"_s, "setLockScreen"_s}));
        QCOMPARE(init.order.results.size(), 0);
        QCOMPARE(init.order.finishes.size(), 0);

        QVERIFY(init.reply(map(c_doneOk, true)));
        QCOMPARE(init.order.posted.size(), 3);
        QCOMPARE(init.order.results.size(), 1);
        QCOMPARE(init.order.finishes.size(), 1);
        QVERIFY(init.order.finishes[0].success);
    }

    void argumentsOfTheLock()
    {
        WorkingCommand init(c_name, map("lock"_s, 2));
        executeUpToScreenLock(init);
        QCOMPARE(init.order.posted[0].instruction.arguments.size(), 0);
        auto const lock = init.order.posted[1].instruction.arguments;
        QCOMPARE(lock.keys(), QStringList{"lock"_s});
        QCOMPARE(lock.first().userType(), int(QMetaType::Int));
        QCOMPARE(lock.first().toInt(), 1);
        QCOMPARE(init.order.posted[2].instruction.arguments.size(), 0);
    }

    void earlyRepliesAreNotExamined_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("error") << map("error"_s, "no"_s);
        QTest::newRow("not done") << map(c_doneOk, false);
        QTest::newRow("not locked") << map("lockStatus"_s, 0);
        QTest::newRow("unrelated") << map("x"_s, QVariantList{1, 2});
    }

    void earlyRepliesAreNotExamined()
    {
        QFETCH(QVariantMap, reply);
        MessageCapture const messages;
        WorkingCommand init(c_name);
        QVERIFY(init.execute());
        QVERIFY(init.reply(reply));
        QVERIFY(init.reply(reply));
        QCOMPARE(init.order.results.size(), 0);
        QCOMPARE(init.order.posted.last().instruction.name, "setLockScreen"_s);
        QVERIFY(init.reply(map(c_doneOk, true)));
        QCOMPARE(init.result(c_doneOk), QVariant(true));
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
    }

    void doneOkIsConverted_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("expected");
        QTest::newRow("true") << QVariant(true) << true;
        QTest::newRow("false") << QVariant(false) << false;
        QTest::newRow("int 1") << QVariant(1) << true;
        QTest::newRow("int -3") << QVariant(-3) << true;
        QTest::newRow("int 0") << QVariant(0) << false;
        QTest::newRow("uint 7") << QVariant(7U) << true;
        QTest::newRow("qlonglong") << QVariant(Q_INT64_C(1) << 40) << true;
        QTest::newRow("double 0.0") << QVariant(0.0) << false;
        QTest::newRow("double 2.0") << QVariant(2.0) << true;
        QTest::newRow("text true") << QVariant("true"_s) << true;
        QTest::newRow("text 1") << QVariant("1"_s) << true;
        QTest::newRow("text false") << QVariant("False"_s) << false;
        QTest::newRow("text 0") << QVariant("0"_s) << false;
        QTest::newRow("empty text") << QVariant(QString()) << false;
        QTest::newRow("bytes 1") << QVariant(QByteArray("1")) << true;
        QTest::newRow("invalid value") << QVariant() << false;
        QTest::newRow("list") << QVariant(QVariantList{true}) << false;
        QTest::newRow("map") << QVariant(QVariantMap{{c_doneOk, true}}) << false;
        QTest::newRow("JSON value") << QVariant(QJsonValue(true)) << true;
    }

    void doneOkIsConverted()
    {
        QFETCH(QVariant, value);
        QFETCH(bool, expected);
        MessageCapture const messages;
        WorkingCommand init(c_name);
        executeUpToScreenLock(init);
        QVERIFY(init.reply({{c_doneOk, value}, {"more"_s, 1}}));

        QCOMPARE(init.order.results.size(), 1);
        QCOMPARE(init.order.results[0].first, c_doneOk);
        QCOMPARE(init.order.results[0].second.userType(), int(QMetaType::Bool));
        QCOMPARE(init.order.results[0].second.toBool(), expected);
        QCOMPARE(init.result(c_doneOk), QVariant(expected));
        QCOMPARE(init.order.finishes.size(), 1);
        QVERIFY(init.order.finishes[0].success);
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
    }

    void missingDoneOk_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("other key") << map("done"_s, true);
        QTest::newRow("other case") << map("doneOK"_s, true);
        QTest::newRow("nested") << map("values"_s, QVariantMap{{c_doneOk, true}});
    }

    void missingDoneOk()
    {
        QFETCH(QVariantMap, reply);
        MessageCapture const messages;
        WorkingCommand init(c_name);
        executeUpToScreenLock(init);
        QVERIFY(!init.reply(reply));

        QCOMPARE(messages.of(QtCriticalMsg).size(), 1);
        QVERIFY(messages.of(QtCriticalMsg)[0].text.endsWith(";\t ERROR: Invalid reply format"_s));
        QCOMPARE(init.order.results.size(), 0);
        QCOMPARE(init.result(c_doneOk), QVariant(false));
        QCOMPARE(init.order.posted.size(), 3);
        QCOMPARE(init.order.finishes.size(), 1);
        QVERIFY(!init.order.finishes[0].success);
    }

    void errorLine()
    {
        setDateSource([] { return QDateTime(QDate(2026, 3, 9), QTime(14, 5, 59, 120)); });
        WorkingCommand init(c_name);
        executeUpToScreenLock(init);
        MessageCapture const messages;
        QVERIFY(!init.reply({}));
        setDateSource({});

        auto const errors = messages.of(QtCriticalMsg);
        QCOMPARE(errors.size(), 1);
        auto const& error = errors[0];
        QCOMPARE(error.category, QByteArray("default"));
        QVERIFY(error.file.isNull());
        QVERIFY(error.function.isNull());
        QCOMPARE(error.line, 0);

        // The source path begins where the library was built; the rest of the line is laid down to the blank.
        QString const tail = "plugins/p_tool_vesk_zrt/source/d_cmd_init_zrt.cpp"_s;
        QString const head = "\n \"2026-03-09 14:05:59.120\" ;\t Thread = %1 ;\t This = %2 ;\t "_s.arg(
            shown(QThread::currentThread()), shown(init.command.dynamicCast<QObject>().data()));
        QVERIFY2(error.text.startsWith(head), qPrintable(error.text));
        QString const rest = error.text.mid(head.size());
        QString const place = rest.section(QLatin1String(" ;\t "), 0, 0);
        QVERIFY2(place.endsWith(QLatin1Char('/') + tail) || place == tail, qPrintable(place));
        QCOMPARE(rest.mid(place.size()), " ;\t 81 ;\t ERROR: Invalid reply format"_s);
    }

    void errorLineNamesItsCommand()
    {
        MessageCapture const messages;
        WorkingCommand first(c_name);
        WorkingCommand second(c_name);
        executeUpToScreenLock(first);
        executeUpToScreenLock(second);
        first.reply({});
        second.reply({});
        auto const errors = messages.of(QtCriticalMsg);
        QCOMPARE(errors.size(), 2);
        QVERIFY(errors[0].text.contains(shown(first.command.dynamicCast<QObject>().data())));
        QVERIFY(errors[1].text.contains(shown(second.command.dynamicCast<QObject>().data())));
    }

    void secondExecution()
    {
        WorkingCommand init(c_name);
        executeUpToScreenLock(init);
        QVERIFY(init.reply(map(c_doneOk, true)));
        executeUpToScreenLock(init);
        QCOMPARE(init.order.posted.size(), 6);
        QVERIFY(init.reply(map(c_doneOk, false)));
        QCOMPARE(init.result(c_doneOk), QVariant(false));
        QCOMPARE(init.order.finishes.size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestCmdInit)
#include "tst_cmd_init.moc"
