#include "error_line.h"
#include "literals.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QTest>

namespace
{

QString const c_name = "stopTightening"_s;
QString const c_lockStatus = "lockStatus"_s;

} // namespace

/// The command "stopTightening" of the shipped library.
class TestCmdStopTightening : public QObject
{
    Q_OBJECT

private slots:
    void instruction_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::newRow("none") << QVariantMap();
        QTest::newRow("a lock code") << QVariantMap{{"lock"_s, 0}, {"locking"_s, 2}};
    }

    void instruction()
    {
        QFETCH(QVariantMap, parameters);
        WorkingCommand stop(c_name, parameters);
        QVERIFY(stop.execute());
        QCOMPARE(stop.order.names(), QStringList{"setLock"_s});
        auto const arguments = stop.order.posted[0].instruction.arguments;
        QCOMPARE(arguments.size(), 1);
        QVERIFY(isSame(arguments.value("lock"_s), QVariant(1)));
    }

    void lockStatus_data()
    {
        QTest::addColumn<QVariant>("value");
        for (auto const& [name, value] : everyKindOfValue())
            QTest::newRow(name.constData()) << value;
        QTest::newRow("3") << QVariant(3);
    }

    void lockStatus()
    {
        QFETCH(QVariant, value);
        MessageCapture const messages;
        WorkingCommand stop(c_name);
        QVERIFY(stop.execute());
        QVERIFY(stop.reply({{c_lockStatus, value}, {"more"_s, 1}}));
        QCOMPARE(stop.order.results.size(), 1);
        QCOMPARE(stop.order.results[0].first, c_lockStatus);
        QCOMPARE(stop.order.results[0].second.userType(), value.userType());
        // NaN differs from itself, so what is compared is what a trace shows.
        QCOMPARE(QVariant(stop.result(c_lockStatus)).toString(), value.toString());
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
        QCOMPARE(stop.order.finishes.size(), 1);
        QVERIFY(stop.order.finishes[0].success);
    }

    void lockStatusIsMissing_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("the other keys")
            << QVariantMap{{"fasteningLocked"_s, true}, {"looseningLocked"_s, true}};
    }

    void lockStatusIsMissing()
    {
        QFETCH(QVariantMap, reply);
        MessageCapture const messages;
        WorkingCommand stop(c_name);
        QVERIFY(stop.execute());
        QVERIFY(!stop.reply(reply));
        QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
        QCOMPARE(ErrorLine::only(messages).file, "d_cmd_stopTightening.cpp"_s);
        QCOMPARE(stop.order.results.size(), 0);
        QVERIFY(!stop.result(c_lockStatus).isValid());
        QVERIFY(!stop.order.finishes[0].success);
    }
};

QTEST_GUILESS_MAIN(TestCmdStopTightening)
#include "tst_cmd_stop_tightening.moc"
