#include "complaint.h"
#include "scratch_folder.h"

#include <files/json_input.h>
#include <zrt_controller/zrt_faults.h>

#include <QtTest>

namespace
{

QString shown(ZrtFault const& fault)
{
    return QStringLiteral("%1 %2 nth %3 probability %4 delay %5 key \"%6\"")
        .arg(static_cast<int>(fault.kind))
        .arg(fault.instruction)
        .arg(fault.nth)
        .arg(fault.probability)
        .arg(fault.delay)
        .arg(fault.key);
}

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
        lost += !faults.matching(QStringLiteral("a")).isEmpty();
    return lost;
}

constexpr int c_times = 10'000;

} // namespace

/// Which faults a set-up file may ask for, and which apply to an instruction.
class TstZrtFaults : public QObject
{
    Q_OBJECT

private slots:
    void read_data();
    void read();
    void readRefuses_data();
    void readRefuses();
    void noFaults();
    void byCount();
    void severalAtOnce();
    void fieldsComeAlong();
    void chanceRate_data();
    void chanceRate();
    void chanceFromTheSeed();
    void chanceDoesNotDisturbCounts();

private:
    ScratchFolder m_folder;
};

void TstZrtFaults::read_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("faults");
    auto const row = [](char const* name, char const* content, QStringList const& faults) {
        QTest::newRow(name) << QByteArray(content) << faults;
    };
    row("none", "[]", {});
    row("delay", R"([{"kind": "delay", "instruction": "getInfo", "nth": 1}])",
        {QStringLiteral("0 getInfo nth 1 probability 0 delay 100 key \"\"")});
    row("no delay", R"([{"kind": "delay", "instruction": "getInfo", "nth": 1, "delay": 0}])",
        {QStringLiteral("0 getInfo nth 1 probability 0 delay 0 key \"\"")});
    row("longest delay", R"([{"kind": "delay", "instruction": "getInfo", "nth": 1, "delay": 600000}])",
        {QStringLiteral("0 getInfo nth 1 probability 0 delay 600000 key \"\"")});
    row("late", R"([{"kind": "late", "instruction": "getInfo", "nth": 2147483647}])",
        {QStringLiteral("1 getInfo nth 2147483647 probability 0 delay 5000 key \"\"")});
    row("later", R"([{"kind": "late", "instruction": "getInfo", "nth": 1, "delay": 7000}])",
        {QStringLiteral("1 getInfo nth 1 probability 0 delay 7000 key \"\"")});
    row("loss", R"([{"kind": "loss", "instruction": "getInfo", "percent": 0}])",
        {QStringLiteral("2 getInfo nth 0 probability 0 delay 0 key \"\"")});
    row("duplicate", R"([{"kind": "duplicate", "instruction": "getInfo", "percent": 100}])",
        {QStringLiteral("3 getInfo nth 0 probability 1 delay 0 key \"\"")});
    row("missing key", R"([{"kind": "missingKey", "instruction": "getInfo", "percent": 25, "key": "k"}])",
        {QStringLiteral("4 getInfo nth 0 probability 0.25 delay 0 key \"k\"")});
    row("wrong type", R"([{"kind": "wrongType", "instruction": "getInfo", "nth": 3, "key": ""}])",
        {QStringLiteral("5 getInfo nth 3 probability 0 delay 0 key \"\"")});
    row("refused", R"([{"kind": "refused", "instruction": "setLock", "nth": 1}])",
        {QStringLiteral("6 setLock nth 1 probability 0 delay 0 key \"\"")});
    row("disconnected", R"([{"kind": "disconnected", "instruction": "getInfo", "nth": 1}])",
        {QStringLiteral("7 getInfo nth 1 probability 0 delay 0 key \"\"")});
    row("two, in order", R"([{"kind": "refused", "instruction": "getInfo", "nth": 1},
                             {"kind": "loss", "instruction": "setLock", "nth": 2}])",
        {QStringLiteral("6 getInfo nth 1 probability 0 delay 0 key \"\""),
         QStringLiteral("2 setLock nth 2 probability 0 delay 0 key \"\"")});
}

void TstZrtFaults::read()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, faults);
    QString const fileName = m_folder.write(QStringLiteral("faults.json"), content);
    QCOMPARE(shown(readZrtFaults(JsonInput::fromFile(fileName))), faults);
}

void TstZrtFaults::readRefuses_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    auto const row = [](char const* name, char const* content, char const* message) {
        QTest::newRow(name) << QByteArray(content) << QString::fromLatin1(message);
    };
    row("object", "{}", "1: must be a list, not an object");
    row("item that is no object", "[\"loss\"]", "1: [0]: must be an object, not a text");
    row("no kind", R"([{"instruction": "getInfo", "nth": 1}])", "1: [0]: the key \"kind\" is missing");
    row("unknown kind",
        "[{\"kind\": \"loss\", \"instruction\": \"getInfo\", \"nth\": 1},\n{\"kind\": \"Loss\"}]",
        "2: [1].kind: unknown kind of fault, known are delay, late, loss, duplicate, missingKey, wrongType, "
        "refused, disconnected");
    row("kind as number", R"([{"kind": 1}])", "1: [0].kind: must be a text, not a number");
    row("no instruction", R"([{"kind": "loss", "nth": 1}])", "1: [0]: the key \"instruction\" is missing");
    row("unknown instruction", R"([{"kind": "loss", "instruction": "setlock", "nth": 1}])",
        "1: [0].instruction: unknown instruction, known are SetTriggerProgram, getInfo, getPresetData, "
        "getRegister, listenEventsData, restoreBackup, setLock, setLockScreen, setProgram");
    row("instruction as null", R"([{"kind": "loss", "instruction": null}])",
        "1: [0].instruction: must be a text, not null");
    row("unknown key", "[{\"kind\": \"loss\",\n\"instruction\": \"getInfo\",\n\"often\": 1}]",
        "3: [0]: unknown key \"often\", known are kind, instruction, nth, percent, delay, key");
    row("neither nth nor percent", R"([{"kind": "loss", "instruction": "getInfo"}])",
        "1: [0]: must have one of \"nth\" and \"percent\"");
    row("both nth and percent", R"([{"kind": "loss", "instruction": "getInfo", "nth": 1, "percent": 1}])",
        "1: [0]: must have one of \"nth\" and \"percent\"");
    row("nth below", R"([{"kind": "loss", "instruction": "getInfo", "nth": 0}])",
        "1: [0].nth: must be a whole number from 1 to 2147483647");
    row("nth above", R"([{"kind": "loss", "instruction": "getInfo", "nth": 2147483648}])",
        "1: [0].nth: must be a whole number from 1 to 2147483647");
    row("percent below", R"([{"kind": "loss", "instruction": "getInfo", "percent": -1}])",
        "1: [0].percent: must be a whole number from 0 to 100");
    row("percent above", R"([{"kind": "loss", "instruction": "getInfo", "percent": 101}])",
        "1: [0].percent: must be a whole number from 0 to 100");
    row("percent as fraction", R"([{"kind": "loss", "instruction": "getInfo", "percent": 0.5}])",
        "1: [0].percent: must be a whole number from 0 to 100");
    for (char const* const kind : {"delay", "late"}) {
        auto const delay = [kind](char const* name, char const* value) {
            QTest::addRow("%s, %s", kind, name)
                << QByteArray("[{\"kind\": \"") + kind
                       + "\", \"instruction\": \"getInfo\", \"nth\": 1, \"delay\": " + value + "}]"
                << QStringLiteral("1: [0].delay: must be a whole number from %1 to 600000")
                       .arg(qstrcmp(kind, "late") == 0 ? 4000 : 0);
        };
        delay("below", "-1");
        delay("above", "600001");
        delay("text", "\"1\"");
        QTest::addRow("key with %s", kind)
            << QByteArray("[{\"kind\": \"") + kind
                   + "\", \"instruction\": \"getInfo\", \"nth\": 1, \"key\": \"k\"}]"
            << QStringLiteral("1: [0].key: goes with the kinds missingKey and wrongType");
    }
    for (char const* const kind : {"loss", "duplicate", "refused", "disconnected"}) {
        QTest::addRow("key with %s", kind)
            << QByteArray("[{\"kind\": \"") + kind
                   + "\", \"instruction\": \"getInfo\", \"nth\": 1, \"key\": \"k\"}]"
            << QStringLiteral("1: [0].key: goes with the kinds missingKey and wrongType");
    }
    for (char const* const kind :
         {"loss", "duplicate", "refused", "disconnected", "missingKey", "wrongType"}) {
        QTest::addRow("delay with %s", kind)
            << QByteArray("[{\"kind\": \"") + kind
                   + "\", \"instruction\": \"getInfo\", \"nth\": 1, \"delay\": 1}]"
            << QStringLiteral("1: [0].delay: goes with the kinds delay and late");
    }
    for (char const* const kind : {"missingKey", "wrongType"}) {
        QTest::addRow("no key with %s", kind)
            << QByteArray("[{\"kind\": \"") + kind + "\", \"instruction\": \"getInfo\", \"nth\": 1}]"
            << QStringLiteral("1: [0]: the key \"key\" is missing");
    }
}

void TstZrtFaults::readRefuses()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QString const fileName = m_folder.write(QStringLiteral("faults.json"), content);
    QCOMPARE(complaintOf([&] { readZrtFaults(JsonInput::fromFile(fileName)); }),
             fileName + QLatin1Char(':') + message);
}

void TstZrtFaults::noFaults()
{
    ZrtFaults faults;
    for (int i = 0; i < 100; ++i)
        QCOMPARE(kindsOf(faults, "a"), QList<int>());
}

void TstZrtFaults::byCount()
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

void TstZrtFaults::severalAtOnce()
{
    ZrtFaults faults({nth(ZrtFault::Delay, "a", 2), byChance(ZrtFault::Duplicate, "a", 1),
                      nth(ZrtFault::WrongType, "a", 2), nth(ZrtFault::Loss, "b", 2),
                      byChance(ZrtFault::Refused, "a", 0)});
    QCOMPARE(kindsOf(faults, "a"), QList<int>{ZrtFault::Duplicate});
    QCOMPARE(kindsOf(faults, "a"), QList<int>({ZrtFault::Delay, ZrtFault::Duplicate, ZrtFault::WrongType}));
    QCOMPARE(kindsOf(faults, "a"), QList<int>{ZrtFault::Duplicate});
}

void TstZrtFaults::fieldsComeAlong()
{
    ZrtFault fault = nth(ZrtFault::MissingKey, "a", 1);
    fault.key = QStringLiteral("k");
    fault.delay = 17;
    ZrtFaults faults({fault});
    QCOMPARE(shown(faults.matching(QStringLiteral("a"))), QStringList{shown(fault)});
}

void TstZrtFaults::chanceRate_data()
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

void TstZrtFaults::chanceRate()
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

void TstZrtFaults::chanceFromTheSeed()
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

void TstZrtFaults::chanceDoesNotDisturbCounts()
{
    ZrtFaults faults({byChance(ZrtFault::Loss, "a", 0.5), nth(ZrtFault::Refused, "a", 50)});
    for (int i = 1; i <= 100; ++i)
        QCOMPARE(kindsOf(faults, "a").contains(ZrtFault::Refused), i == 50);
}

QTEST_GUILESS_MAIN(TstZrtFaults)
#include "tst_zrt_faults.moc"
