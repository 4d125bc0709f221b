
#include "literals.h"

#include <zrt_controller/zrt_controller.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QtTest>

namespace
{

/// All that a state is made of, to compare it as a whole.
QVariantMap contentOf(ZrtState const& state)
{
    return {{"model"_s, state.model},
            {"serialNumber"_s, state.serialNumber},
            {"firmware"_s, state.firmware},
            {"lock"_s, state.lock},
            {"isScreenLocked"_s, state.isScreenLocked}};
}

/// A map's keys, types and values in one text.
QString exactly(QVariantMap const& map)
{
    QStringList entries;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        entries += "%1: %2 %3"_s.arg(it.key(), QString::fromLatin1(it->typeName()), it->toString());
    return entries.join(", "_s);
}

QString const lockKey = "lock"_s;

} // namespace

/// The simulated controller, and the way to it.
class TestZrtController : public QObject
{
    Q_OBJECT

private slots:
    void getInfo()
    {
        ZrtState state;
        state.model = "M"_s;
        state.serialNumber = "S"_s;
        state.firmware = "F"_s;
        state.lock = 2;
        ZrtController controller(state);
        QCOMPARE(exactly(controller.execute("getInfo"_s, {})),
                 "firmware: QString F, model: QString M, serialNumber: QString S"_s);
        QCOMPARE(contentOf(controller.state()), contentOf(state));
        QCOMPARE(exactly(ZrtController(ZrtState()).execute("getInfo"_s, {})),
                 "firmware: QString 1.0.0, model: QString ZRT, serialNumber: QString ZRT-SIM-0001"_s);
    }

    void setLock_data()
    {
        QTest::addColumn<int>("former");
        QTest::addColumn<int>("lock");
        QTest::addColumn<QString>("reply");
        char const* const replies[] = {
            "fasteningLocked: bool false, lockStatus: int 0, looseningLocked: bool false",
            "fasteningLocked: bool true, lockStatus: int 1, looseningLocked: bool true",
            "fasteningLocked: bool false, lockStatus: int 2, looseningLocked: bool true",
        };
        for (int former = 0; former <= 2; ++former) {
            for (int lock = 0; lock <= 2; ++lock)
                QTest::addRow("%d to %d", former, lock)
                    << former << lock << QString::fromLatin1(replies[lock]);
        }
    }

    void setLock()
    {
        QFETCH(int, former);
        QFETCH(int, lock);
        QFETCH(QString, reply);
        ZrtState state;
        state.lock = former;
        ZrtController controller(state);
        QCOMPARE(exactly(controller.execute("setLock"_s, {{lockKey, lock}})), reply);
        state.lock = lock;
        QCOMPARE(contentOf(controller.state()), contentOf(state));
    }

    void setLockRefuses_data()
    {
        QTest::addColumn<QVariantMap>("arguments");
        QTest::newRow("missing") << QVariantMap();
        QTest::newRow("another key") << QVariantMap({{"Lock"_s, 1}});
        auto const row = [](char const* name, QVariant const& lock) {
            QTest::newRow(name) << QVariantMap({{lockKey, lock}});
        };
        row("below", -1);
        row("above", 3);
        row("far above", qulonglong{1} << 32 | 1);
        row("unsigned beyond int", 4294967295U);
        row("beyond int, its lower half a code", qlonglong{1} << 32 | 1);
        row("far below", std::numeric_limits<qlonglong>::min());
        row("null", QVariant());
        row("true", true);
        row("false", false);
        row("fraction", 1.5);
        row("less than a half", 0.25);
        row("not a number", qQNaN());
        row("infinite", qInf());
        row("digit as text", "1"_s);
        row("text", "locked"_s);
        row("empty text", QString());
        row("bytes", QByteArray("1"));
        row("list", QVariantList({1}));
        row("map", QVariantMap({{lockKey, 1}}));
    }

    void setLockRefuses()
    {
        QFETCH(QVariantMap, arguments);
        ZrtState state;
        state.lock = 2;
        ZrtController controller(state);
        QCOMPARE(exactly(controller.execute("setLock"_s, arguments)),
                 "error: QString \"lock\" must be 0 (free), 1 (all locked) or 2 (loosening locked)"_s);
        QCOMPARE(contentOf(controller.state()), contentOf(state));
    }

    void setLockScreen()
    {
        ZrtState state;
        state.lock = 1;
        ZrtController controller(state);
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(exactly(controller.execute("setLockScreen"_s, {})), "doneOk: bool true"_s);
            state.isScreenLocked = true;
            QCOMPARE(contentOf(controller.state()), contentOf(state));
        }
    }

    void unknownInstructions_data()
    {
        QTest::addColumn<QString>("instruction");
        QTest::newRow("unknown") << "makeCoffee"_s;
        QTest::newRow("empty") << QString();
        QTest::newRow("another case") << "getinfo"_s;
        QTest::newRow("percent") << "%1"_s;
    }

    void unknownInstructions()
    {
        QFETCH(QString, instruction);
        ZrtController controller((ZrtState()));
        QCOMPARE(exactly(controller.execute(instruction, {{lockKey, 1}})),
                 "error: QString unknown instruction \""_s + instruction + QLatin1Char('"'));
        QCOMPARE(contentOf(controller.state()), contentOf(ZrtState()));
    }

    void replyTimes_data()
    {
        QTest::addColumn<int>("replyTime");
        for (int const time : {0, 1, 5, 600'000})
            QTest::addRow("%d ms", time) << time;
    }

    void replyTimes()
    {
        QFETCH(int, replyTime);
        ZrtClock clock(ZrtClock::Pace::Simulated);
        auto const controller = ZrtSimulatedController::create({{}, {replyTime, 50}, true, {}}, clock);
        QStringList replies;
        quint64 id = 0;
        auto const post = [&](char const* instruction, QVariantMap const& arguments) {
            controller->post(
                ++id, QString::fromLatin1(instruction), arguments,
                [&](QVariantMap const& reply) { replies += "%1 %2"_s.arg(clock.now()).arg(exactly(reply)); });
        };
        clock.after(10, [&] {
            post("setLock", {{lockKey, 2}});
            post("setLockScreen", {});
            post("wrong", {});
            QVERIFY(replies.isEmpty()); // not before post() is back, even if it takes no time
        });
        while (clock.step()) {
        }
        QString const time = QString::number(10 + replyTime);
        QCOMPARE(replies,
                 QStringList({time
                                  + " fasteningLocked: bool false, lockStatus: int 2, looseningLocked: "
                                    "bool true"_s,
                              time + " doneOk: bool true"_s,
                              time + " error: QString unknown instruction \"wrong\""_s}));
    }

    void instructionsArriveAtOnce()
    {
        ZrtClock clock(ZrtClock::Pace::Simulated);
        auto const controller = ZrtSimulatedController::create({{}, {100, 50}, true, {}}, clock);
        QList<int> statuses;
        auto const onReply = [&](QVariantMap const& reply) {
            statuses += reply.value("lockStatus"_s).toInt();
        };
        controller->post(1, "setLock"_s, {{lockKey, 1}}, onReply);
        QCOMPARE(controller->state().lock, 1);
        controller->post(2, "setLock"_s, {{lockKey, 2}}, onReply);
        QCOMPARE(controller->state().lock, 2);
        while (clock.step()) {
        }
        QCOMPARE(statuses, QList<int>({1, 2})); // each what it was when its instruction arrived
    }
};

QTEST_GUILESS_MAIN(TestZrtController)
#include "tst_zrt_controller.moc"
