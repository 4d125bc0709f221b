#include <utilities/d_object.h>
#include <utilities/date_source.h>
#include <utilities/utilities.h>

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QJsonObject>
#include <QPoint>
#include <QPointer>
#include <QRegularExpression>
#include <QSharedPointer>
#include <QUuid>
#include <QtTest>

#include <limits>
#include <memory>

using Map = QMap<QString, QVariant>;

class TestUtilities : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();

    void versionFromString_data();
    void versionFromString();
    void versionsOrder_data();
    void versionsOrder();
    void versionToString_data();
    void versionToString();
    void versionRoundTrip_data();
    void versionRoundTrip();

    void mapToString_data();
    void mapToString();
    void mapTextStaysOnOneLine_data();
    void mapTextStaysOnOneLine();
    void hashTextDependsOnContentOnly();
    void deepMapIsCutOff_data();
    void deepMapIsCutOff();
    void largeMapIsComplete();

    void dateHasFixedFormat();
    void dateComesFromSource();
    void emptySourceGivesSystemClockBack();

    void objectCarriesName();
    void objectHasParent();
};

void TestUtilities::cleanup()
{
    setDateSource({});
}

void TestUtilities::versionFromString_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QChar>("separator");
    QTest::addColumn<bool>("good");
    QTest::addColumn<quint64>("version");

    QChar const dot(QLatin1Char('.'));
    auto const good = [dot](char const* row, QString const& text, quint64 version) {
        QTest::newRow(row) << text << dot << true << version;
    };
    auto const bad = [dot](char const* row, QString const& text) {
        QTest::newRow(row) << text << dot << false << quint64{0};
    };

    good("two components", QStringLiteral("1.0"), Q_UINT64_C(0x0001000000000000));
    good("one component", QStringLiteral("1"), Q_UINT64_C(0x0001000000000000));
    good("three components", QStringLiteral("1.0.0"), Q_UINT64_C(0x0001000000000000));
    good("four components", QStringLiteral("1.2.3.4"), Q_UINT64_C(0x0001000200030004));
    good("decimal, not octal or hexadecimal", QStringLiteral("10.16"), Q_UINT64_C(0x000A001000000000));
    good("largest", QStringLiteral("65535.65535.65535.65535"), std::numeric_limits<quint64>::max());
    good("zero is good", QStringLiteral("0.0"), 0);
    good("last component only", QStringLiteral("0.0.0.1"), 1);

    QTest::newRow("other separator") << QStringLiteral("3-7") << QChar(QLatin1Char('-')) << true
                                     << Q_UINT64_C(0x0003000700000000);
    QTest::newRow("non-ASCII separator")
        << QStringLiteral("3\u00b77") << QChar(0x00b7) << true << Q_UINT64_C(0x0003000700000000);
    QTest::newRow("dot where another separator is asked for")
        << QStringLiteral("3.7") << QChar(QLatin1Char('-')) << false << quint64{0};

    bad("null text", QString());
    bad("empty text", QStringLiteral(""));
    bad("separator only", QStringLiteral("."));
    bad("empty first component", QStringLiteral(".1"));
    bad("empty last component", QStringLiteral("1."));
    bad("empty middle component", QStringLiteral("1..2"));
    bad("five components", QStringLiteral("1.2.3.4.5"));
    bad("five components, the last empty", QStringLiteral("1.2.3.4."));
    bad("component one too large", QStringLiteral("65536.0"));
    bad("last component one too large", QStringLiteral("1.0.0.65536"));
    bad("component of 33 bits", QStringLiteral("1.4294967297"));
    bad("component of 65 bits", QStringLiteral("18446744073709551617"));
    bad("plus sign", QStringLiteral("+1.0"));
    bad("minus sign", QStringLiteral("1.-1"));
    bad("minus zero", QStringLiteral("-0"));
    bad("leading blank", QStringLiteral(" 1.0"));
    bad("trailing blank", QStringLiteral("1.0 "));
    bad("inner blank", QStringLiteral("1. 0"));
    bad("line feed", QStringLiteral("1.0\n"));
    bad("letters", QStringLiteral("v1.0"));
    bad("letters behind", QStringLiteral("1.0a"));
    bad("hexadecimal", QStringLiteral("0x10"));
    bad("exponent", QStringLiteral("1e2"));
    bad("digit grouping", QStringLiteral("1,000"));
    bad("good before bad", QStringLiteral("7.x"));
    bad("bad before good", QStringLiteral("x.7"));
    bad("Arabic-Indic digits", QStringLiteral("\u0661.\u0662"));
    bad("fullwidth digits", QStringLiteral("\uff11.\uff10"));
    bad("null character", QString(QChar()) + QLatin1Char('1'));
}

void TestUtilities::versionFromString()
{
    QFETCH(QString, text);
    QFETCH(QChar, separator);
    QFETCH(bool, good);
    QFETCH(quint64, version);

    // Whatever stood in ok before does not count.
    for (bool const before : {false, true}) {
        bool ok = before;
        QCOMPARE(::versionFromString(text, &ok, separator), version);
        QCOMPARE(ok, good);
    }
    QCOMPARE(::versionFromString(text, nullptr, separator), version);
    if (separator == QLatin1Char('.'))
        QCOMPARE(::versionFromString(text), version);
}

void TestUtilities::versionsOrder_data()
{
    QTest::addColumn<QString>("lower");
    QTest::addColumn<QString>("higher");

    QTest::newRow("first component") << QStringLiteral("1.65535.65535.65535") << QStringLiteral("2.0");
    QTest::newRow("second component") << QStringLiteral("1.9") << QStringLiteral("1.10");
    QTest::newRow("third component") << QStringLiteral("1.2.3.65535") << QStringLiteral("1.2.4");
    QTest::newRow("fourth component") << QStringLiteral("1.2.3") << QStringLiteral("1.2.3.1");
    QTest::newRow("high bit") << QStringLiteral("32767.0") << QStringLiteral("32768.0");
}

void TestUtilities::versionsOrder()
{
    QFETCH(QString, lower);
    QFETCH(QString, higher);
    QVERIFY(::versionFromString(lower) < ::versionFromString(higher));
}

void TestUtilities::versionToString_data()
{
    QTest::addColumn<quint64>("version");
    QTest::addColumn<QString>("text");

    QTest::newRow("two components") << Q_UINT64_C(0x0001000000000000) << QStringLiteral("1.0");
    QTest::newRow("nothing") << quint64{0} << QStringLiteral("0.0");
    QTest::newRow("third component") << Q_UINT64_C(0x0001000000030000) << QStringLiteral("1.0.3");
    QTest::newRow("third component zero") << Q_UINT64_C(0x0001000200000004) << QStringLiteral("1.2.0.4");
    QTest::newRow("fourth component") << quint64{1} << QStringLiteral("0.0.0.1");
    QTest::newRow("zeros within a number stay")
        << Q_UINT64_C(0x000A001400640000) << QStringLiteral("10.20.100");
    QTest::newRow("largest") << std::numeric_limits<quint64>::max()
                             << QStringLiteral("65535.65535.65535.65535");
}

void TestUtilities::versionToString()
{
    QFETCH(quint64, version);
    QFETCH(QString, text);
    QCOMPARE(::versionToString(version), text);
}

void TestUtilities::versionRoundTrip_data()
{
    QTest::addColumn<quint64>("version");

    for (int bit = 0; bit < 64; ++bit)
        QTest::addRow("bit %d", bit) << (quint64{1} << bit);
    QTest::newRow("all bits") << std::numeric_limits<quint64>::max();
    QTest::newRow("no bit") << quint64{0};
}

void TestUtilities::versionRoundTrip()
{
    QFETCH(quint64, version);
    bool ok = false;
    QCOMPARE(::versionFromString(::versionToString(version), &ok), version);
    QVERIFY(ok);
}

void TestUtilities::mapToString_data()
{
    QTest::addColumn<Map>("map");
    QTest::addColumn<QString>("text");

    QTest::newRow("empty") << Map() << QStringLiteral("{}");
    QTest::newRow("documented example") << Map{{QStringLiteral("doneOk"), true},
                                               {QStringLiteral("values"), Map{{QStringLiteral("count"), 5}}}}
                                        << QStringLiteral(R"({"doneOk": true, "values": {"count": 5}})");
    QTest::newRow("keys in order") << Map{{QStringLiteral("b"), 2},
                                          {QStringLiteral("a"), 1},
                                          {QStringLiteral("c"), 3}}
                                   << QStringLiteral(R"({"a": 1, "b": 2, "c": 3})");
    QTest::newRow("empty key") << Map{{QString(), 1}} << QStringLiteral(R"({"": 1})");

    auto const one = [](char const* row, QVariant const& value, QString const& text) {
        QTest::newRow(row) << Map{{QStringLiteral("k"), value}} << QStringLiteral("{\"k\": %1}").arg(text);
    };
    one("false", false, QStringLiteral("false"));
    one("int", -42, QStringLiteral("-42"));
    one("uint", 4294967295U, QStringLiteral("4294967295"));
    one("qint64", std::numeric_limits<qint64>::min(), QStringLiteral("-9223372036854775808"));
    one("quint64", std::numeric_limits<quint64>::max(), QStringLiteral("18446744073709551615"));
    one("quint16", QVariant::fromValue(quint16{65535}), QStringLiteral("65535"));
    one("double", 1.5, QStringLiteral("1.5"));
    one("string", QStringLiteral("text"), QStringLiteral("\"text\""));
    one("empty string", QStringLiteral(""), QStringLiteral("\"\""));
    one("null string", QString(), QStringLiteral("\"\""));
    one("non-ASCII string", QStringLiteral("N\u00b7m"), QStringLiteral("\"N\u00b7m\""));
    one("string of digits", QStringLiteral("5"), QStringLiteral("\"5\""));
    one("byte array", QByteArray("bytes"), QStringLiteral("bytes"));
    one("character", QChar(QLatin1Char('x')), QStringLiteral("x"));
    one("date", QDate(2026, 3, 9), QStringLiteral("2026-03-09"));
    one("uuid", QUuid(QStringLiteral("{fe68f24c-ac43-4833-abc7-7d9f33744448}")),
        QStringLiteral("{fe68f24c-ac43-4833-abc7-7d9f33744448}"));
    one("invalid", QVariant(), QStringLiteral("<invalid>"));
    one("null of a type", QVariant(QVariant::Int), QStringLiteral("0"));
    one("no text", QPoint(1, 2), QStringLiteral("<QPoint>"));
    one("json object", QJsonObject{{QStringLiteral("a"), 1}}, QStringLiteral("<QJsonObject>"));
    one("object pointer", QVariant::fromValue<QObject*>(nullptr), QStringLiteral("<QObject*>"));

    one("empty map", Map(), QStringLiteral("{}"));
    one("empty hash", QVariantHash(), QStringLiteral("{}"));
    one("empty list", QVariantList(), QStringLiteral("[]"));
    one("hash", QVariantHash{{QStringLiteral("x"), 1}}, QStringLiteral(R"({"x": 1})"));
    one("list", QVariantList{1, QStringLiteral("two"), QVariant(), Map{{QStringLiteral("x"), true}}},
        QStringLiteral(R"([1, "two", <invalid>, {"x": true}])"));
    one("string list of one", QStringList{QStringLiteral("a")}, QStringLiteral(R"(["a"])"));
    one("string list", QStringList{QStringLiteral("a"), QString()}, QStringLiteral(R"(["a", ""])"));
    one("list in list", QVariantList{QVariant(QVariantList{1, 2}), QVariantHash{{QStringLiteral("x"), 3}}},
        QStringLiteral(R"([[1, 2], {"x": 3}])"));
}

void TestUtilities::mapToString()
{
    QFETCH(Map, map);
    QFETCH(QString, text);
    QCOMPARE(convVariantMapToString(map), text);
}

void TestUtilities::mapTextStaysOnOneLine_data()
{
    QTest::addColumn<Map>("map");

    QString const lines = QStringLiteral("a\nb\r\nc");
    QTest::newRow("string") << Map{{QStringLiteral("k"), lines}};
    QTest::newRow("key") << Map{{lines, 1}};
    QTest::newRow("byte array") << Map{{QStringLiteral("k"), lines.toUtf8()}};
    QTest::newRow("string in a list") << Map{{QStringLiteral("k"), QStringList{lines}}};
}

void TestUtilities::mapTextStaysOnOneLine()
{
    QFETCH(Map, map);
    QString const text = convVariantMapToString(map);
    QVERIFY2(!text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r')), qPrintable(text));
}

void TestUtilities::hashTextDependsOnContentOnly()
{
    constexpr int count = 500;
    QVariantHash forwards;
    QVariantHash backwards;
    backwards.reserve(10 * count); // another number of buckets: another order of iteration
    Map sorted;
    for (int i = 0; i < count; ++i) {
        forwards.insert(QStringLiteral("key%1").arg(i), i);
        sorted.insert(QStringLiteral("key%1").arg(i), i);
        backwards.insert(QStringLiteral("key%1").arg(count - 1 - i), count - 1 - i);
    }
    QVERIFY(forwards.keys() != backwards.keys());

    auto const text = [](QVariant const& value) {
        return convVariantMapToString({{QStringLiteral("k"), value}});
    };
    QCOMPARE(text(forwards), text(backwards));
    QCOMPARE(text(forwards), text(sorted));
}

void TestUtilities::deepMapIsCutOff_data()
{
    QTest::addColumn<int>("depth");
    QTest::addColumn<bool>("inLists");

    QTest::newRow("maps") << 1000 << false;
    QTest::newRow("lists") << 1000 << true;
}

void TestUtilities::deepMapIsCutOff()
{
    QFETCH(int, depth);
    QFETCH(bool, inLists);
    QVariant value = QStringLiteral("innermost");
    QVariant shallow = value;
    constexpr int reasonable = 8; // a reply of the device never nests deeper
    for (int i = 0; i < depth; ++i) {
        value = inLists ? QVariant(QVariantList{value}) : QVariant(Map{{QStringLiteral("k"), value}});
        if (i == reasonable)
            shallow = value;
    }
    QString const text = convVariantMapToString({{QStringLiteral("k"), value}});
    QVERIFY2(text.contains(QStringLiteral("...")), qPrintable(text.left(80)));
    QVERIFY(!text.contains(QStringLiteral("innermost")));
    QVERIFY2(text.size() < 1000, qPrintable(QString::number(text.size())));
    QCOMPARE(text.count(QLatin1Char('{')), text.count(QLatin1Char('}')));
    QCOMPARE(text.count(QLatin1Char('[')), text.count(QLatin1Char(']')));

    QString const whole = convVariantMapToString({{QStringLiteral("k"), shallow}});
    QVERIFY(whole.contains(QStringLiteral("innermost")));
}

void TestUtilities::largeMapIsComplete()
{
    constexpr int count = 100000;
    Map map;
    for (int i = 0; i < count; ++i)
        map.insert(QStringLiteral("key%1").arg(i, 6, 10, QLatin1Char('0')), i);
    QString const text = convVariantMapToString(map);
    QVERIFY(text.startsWith(QStringLiteral("{\"key000000\": 0, \"key000001\": 1, ")));
    QVERIFY(text.endsWith(QStringLiteral(", \"key099999\": 99999}")));
    QCOMPARE(text.count(QStringLiteral(": ")), count);
}

void TestUtilities::dateHasFixedFormat()
{
    QRegularExpression const format(QStringLiteral(R"(\A\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\z)"));
    QString const date = getDate();
    QVERIFY2(format.match(date).hasMatch(), qPrintable(date));
    QVERIFY(QDateTime::fromString(date, QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")).isValid());
}

void TestUtilities::dateComesFromSource()
{
    QDateTime now(QDate(2026, 3, 9), QTime(14, 5, 59, 120));
    setDateSource([&now] { return now; });
    QCOMPARE(getDate(), QStringLiteral("2026-03-09 14:05:59.120"));
    QCOMPARE(getDate(), QStringLiteral("2026-03-09 14:05:59.120"));
    now = QDateTime(QDate(1, 12, 1), QTime(0, 0, 0, 7));
    QCOMPARE(getDate(), QStringLiteral("0001-12-01 00:00:00.007"));

    setDateSource([] { return QDateTime(QDate(2030, 1, 2), QTime(23, 59, 59, 999)); });
    QCOMPARE(getDate(), QStringLiteral("2030-01-02 23:59:59.999"));
}

void TestUtilities::emptySourceGivesSystemClockBack()
{
    auto alive = std::make_shared<int>(0);
    setDateSource([alive] { return QDateTime(QDate(1999, 1, 1), QTime(0, 0)); });
    QCOMPARE(getDate(), QStringLiteral("1999-01-01 00:00:00.000"));
    setDateSource({});
    QCOMPARE(alive.use_count(), 1L);
    QString const date = getDate();
    QVERIFY2(!date.startsWith(QStringLiteral("1999-")), qPrintable(date));
    QCOMPARE(date.size(), 23);
}

void TestUtilities::objectCarriesName()
{
    DObject const object(QStringLiteral("ch_1"), nullptr);
    QCOMPARE(object.objectName(), QStringLiteral("ch_1"));
    QVERIFY(object.parent() == nullptr);
    QCOMPARE(object.metaObject()->className(), "DObject");
    QCOMPARE(object.metaObject()->superClass()->className(), "QObject");
    QVERIFY(DObject(QString(), nullptr).objectName().isEmpty());
}

void TestUtilities::objectHasParent()
{
    auto parent = std::make_unique<QObject>();
    QPointer<DObject> const child = new DObject(QStringLiteral("child"), parent.get());
    QCOMPARE(child->parent(), parent.get());
    parent.reset();
    QVERIFY(child.isNull());
}

QTEST_GUILESS_MAIN(TestUtilities)
#include "tst_utilities.moc"
