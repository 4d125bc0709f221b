#include "controller_bench.h"

#include <zrt_controller/zrt_faults.h>

#include <QtTest>

#include <limits>

namespace
{

ZrtFault chance(ZrtFault::Kind kind, double probability)
{
    ZrtFault fault = ::fault(kind, "a", 0);
    fault.probability = probability;
    return fault;
}

/// The kinds that apply to the next instruction of a name.
QList<int> kindsOf(ZrtFaults& faults, char const* instruction)
{
    QList<int> kinds;
    auto const matching = faults.matching(QString::fromLatin1(instruction));
    for (auto const& one : matching)
        kinds += one.kind;
    return kinds;
}

} // namespace

/// Which faults apply to an instruction.
class TestZrtFaults : public QObject
{
    Q_OBJECT

private slots:
    void byCount()
    {
        ZrtFaults faults({fault(ZrtFault::Loss, "a", 2), fault(ZrtFault::Refused, "b")});
        QCOMPARE(kindsOf(faults, "a"), QList<int>());
        QCOMPARE(kindsOf(faults, "b"), QList<int>{ZrtFault::Refused}); // each name has its own count
        QCOMPARE(kindsOf(faults, "A"), QList<int>());
        QCOMPARE(kindsOf(faults, "a"), QList<int>{ZrtFault::Loss});
        for (int i = 0; i < 100; ++i) {
            QCOMPARE(kindsOf(faults, "a"), QList<int>());
            QCOMPARE(kindsOf(faults, "b"), QList<int>());
        }
    }

    void severalAtOnce()
    {
        ZrtFault const whole = fault(ZrtFault::MissingKey, "a", 2, 17, "k");
        ZrtFaults faults({whole, chance(ZrtFault::Duplicate, 1), fault(ZrtFault::WrongType, "a", 2),
                          fault(ZrtFault::Loss, "b", 2), chance(ZrtFault::Refused, 0)});
        QCOMPARE(kindsOf(faults, "a"), QList<int>{ZrtFault::Duplicate});
        auto const second = faults.matching("a"_s);
        QCOMPARE(second.size(), 3);
        QCOMPARE(shown(second[0]), shown(whole));
        QCOMPARE(second[1].kind, ZrtFault::Duplicate);
        QCOMPARE(second[2].kind, ZrtFault::WrongType);
        QCOMPARE(kindsOf(faults, "a"), QList<int>{ZrtFault::Duplicate});
    }

    void chanceRate_data()
    {
        QTest::addColumn<double>("probability");
        QTest::addColumn<int>("lowest");
        QTest::addColumn<int>("highest");
        // Five standard deviations to either side.
        QTest::newRow("never") << 0.0 << 0 << 0;
        QTest::newRow("1 %") << 0.01 << 50 << 150;
        QTest::newRow("50 %") << 0.5 << 4750 << 5250;
        QTest::newRow("99 %") << 0.99 << 9850 << 9950;
        QTest::newRow("always") << 1.0 << 10'000 << 10'000;
    }

    void chanceRate()
    {
        QFETCH(double, probability);
        QFETCH(int, lowest);
        QFETCH(int, highest);
        for (quint64 const seed : {quint64(0), quint64(1), std::numeric_limits<quint64>::max()}) {
            ZrtFaults faults({chance(ZrtFault::Loss, probability)}, seed);
            int lost = 0;
            for (int i = 0; i < 10'000; ++i)
                lost += kindsOf(faults, "a").size();
            QVERIFY2(lost >= lowest && lost <= highest, QByteArray::number(lost));
        }
    }

    void chanceDoesNotDisturbCounts()
    {
        ZrtFaults faults({chance(ZrtFault::Loss, 0.5), fault(ZrtFault::Refused, "a", 50)});
        for (int i = 1; i <= 100; ++i)
            QCOMPARE(kindsOf(faults, "a").contains(ZrtFault::Refused), i == 50);
    }
};

QTEST_GUILESS_MAIN(TestZrtFaults)
#include "tst_zrt_faults.moc"
