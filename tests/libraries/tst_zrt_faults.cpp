#include "literals.h"
#include "shown_fault.h"

#include <zrt_controller/zrt_faults.h>

#include <QtTest>

namespace
{

QStringList shown(QList<ZrtFault> const& faults)
{
    QStringList list;
    for (auto const& fault : faults)
        list += shown(fault);
    return list;
}

ZrtFault nth(ZrtFault::Kind kind, char const* instruction, int count)
{
    ZrtFault fault;
    fault.kind = kind;
    fault.instruction = QString::fromLatin1(instruction);
    fault.nth = count;
    return fault;
}

ZrtFault byChance(ZrtFault::Kind kind, char const* instruction, double probability)
{
    ZrtFault fault = nth(kind, instruction, 0);
    fault.probability = probability;
    return fault;
}

/// The kinds that apply to the next instruction of a name.
QList<int> kindsOf(ZrtFaults& faults, char const* instruction)
{
    QList<int> kinds;
    auto const matching = faults.matching(QString::fromLatin1(instruction));
    for (auto const& fault : matching)
        kinds += fault.kind;
    return kinds;
}

QList<bool> course(ZrtFaults& faults, int count)
{
    QList<bool> lost;
    for (int i = 0; i < count; ++i)
        lost += !faults.matching("a"_s).isEmpty();
    return lost;
}

constexpr int c_times = 10'000;

} // namespace

/// Which faults apply to an instruction.
class TestZrtFaults : public QObject
{
    Q_OBJECT

private slots:
    void noFaults()
    {
        ZrtFaults faults;
        for (int i = 0; i < 100; ++i)
            QCOMPARE(kindsOf(faults, "a"), QList<int>());
    }

    void byCount()
    {
        ZrtFaults faults({nth(ZrtFault::Loss, "a", 2), nth(ZrtFault::Refused, "b", 1)});
        QCOMPARE(kindsOf(faults, "a"), QList<int>());
        QCOMPARE(kindsOf(faults, "b"), QList<int>{ZrtFault::Refused}); // each name has its own count
        QCOMPARE(kindsOf(faults, "A"), QList<int>());
        QCOMPARE(kindsOf(faults, "b"), QList<int>());
        QCOMPARE(kindsOf(faults, "a"), QList<int>{ZrtFault::Loss});
        for (int i = 0; i < 100; ++i) {
            QCOMPARE(kindsOf(faults, "a"), QList<int>());
            QCOMPARE(kindsOf(faults, "b"), QList<int>());
        }
    }

    void severalAtOnce()
    {
        ZrtFaults faults({nth(ZrtFault::Delay, "a", 2), byChance(ZrtFault::Duplicate, "a", 1),
                          nth(ZrtFault::WrongType, "a", 2), nth(ZrtFault::Loss, "b", 2),
                          byChance(ZrtFault::Refused, "a", 0)});
        QCOMPARE(kindsOf(faults, "a"), QList<int>{ZrtFault::Duplicate});
        QCOMPARE(kindsOf(faults, "a"),
                 QList<int>({ZrtFault::Delay, ZrtFault::Duplicate, ZrtFault::WrongType}));
        QCOMPARE(kindsOf(faults, "a"), QList<int>{ZrtFault::Duplicate});
    }

    void fieldsComeAlong()
    {
        ZrtFault fault = nth(ZrtFault::MissingKey, "a", 1);
        fault.key = "k"_s;
        fault.delay = 17;
        ZrtFaults faults({fault});
        QCOMPARE(shown(faults.matching("a"_s)), QStringList{shown(fault)});
    }

    void chanceRate_data()
    {
        QTest::addColumn<double>("probability");
        QTest::addColumn<int>("lowest");
        QTest::addColumn<int>("highest");
        // Five standard deviations to either side.
        QTest::newRow("never") << 0.0 << 0 << 0;
        QTest::newRow("1 %") << 0.01 << 50 << 150;
        QTest::newRow("25 %") << 0.25 << 2283 << 2717;
        QTest::newRow("50 %") << 0.5 << 4750 << 5250;
        QTest::newRow("99 %") << 0.99 << 9850 << 9950;
        QTest::newRow("always") << 1.0 << c_times << c_times;
    }

    void chanceRate()
    {
        QFETCH(double, probability);
        QFETCH(int, lowest);
        QFETCH(int, highest);
        for (quint64 const seed : {quint64(0), quint64(1), std::numeric_limits<quint64>::max()}) {
            ZrtFaults faults({byChance(ZrtFault::Loss, "a", probability)}, seed);
            int const lost = course(faults, c_times).count(true);
            QVERIFY2(lost >= lowest && lost <= highest, QByteArray::number(lost));
        }
    }

    void chanceFromTheSeed()
    {
        QList<ZrtFault> const list{byChance(ZrtFault::Loss, "a", 0.5)};
        ZrtFaults one(list, 7);
        ZrtFaults same(list, 7);
        ZrtFaults other(list, 8);
        auto const oneCourse = course(one, 200);
        QCOMPARE(course(same, 200), oneCourse);
        QVERIFY(course(other, 200) != oneCourse);
        QVERIFY(course(one, 200) != oneCourse); // and not the same over and over
    }

    void chanceDoesNotDisturbCounts()
    {
        ZrtFaults faults({byChance(ZrtFault::Loss, "a", 0.5), nth(ZrtFault::Refused, "a", 50)});
        for (int i = 1; i <= 100; ++i)
            QCOMPARE(kindsOf(faults, "a").contains(ZrtFault::Refused), i == 50);
    }
};

QTEST_GUILESS_MAIN(TestZrtFaults)
#include "tst_zrt_faults.moc"
