#include "literals.h"

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
    void cleanup() { setDateSource({}); }

    void versionFromString_data()
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

        good("two components", "1.0"_s, Q_UINT64_C(0x0001000000000000));
        good("one component", "1"_s, Q_UINT64_C(0x0001000000000000));
        good("three components", "1.0.0"_s, Q_UINT64_C(0x0001000000000000));
        good("four components", "1.2.3.4"_s, Q_UINT64_C(0x0001000200030004));
        good("decimal, not octal or hexadecimal", "10.16"_s, Q_UINT64_C(0x000A001000000000));
        good("largest", "65535.65535.65535.65535"_s, std::numeric_limits<quint64>::max());
        good("zero is good", "0.0"_s, 0);
        good("last component only", "0.0.0.1"_s, 1);

        QTest::newRow("other separator")
            << "3-7"_s << QChar(QLatin1Char('-')) << true << Q_UINT64_C(0x0003000700000000);
        QTest::newRow("non-ASCII separator")
            << "3\u00b77"_s << QChar(0x00b7) << true << Q_UINT64_C(0x0003000700000000);
        QTest::newRow("dot where another separator is asked for")
            << "3.7"_s << QChar(QLatin1Char('-')) << false << quint64{0};

        bad("null text", QString());
        bad("empty text", ""_s);
        bad("separator only", "."_s);
        bad("empty first component", ".1"_s);
        bad("empty last component", "1."_s);
        bad("empty middle component", "1..2"_s);
        bad("five components", "1.2.3.4.5"_s);
        bad("five components, the last empty", "1.2.3.4."_s);
        bad("component one too large", "65536.0"_s);
        bad("last component one too large", "1.0.0.65536"_s);
        bad("component of 33 bits", "1.4294967297"_s);
        bad("component of 65 bits", "18446744073709551617"_s);
        bad("plus sign", "+1.0"_s);
        bad("minus sign", "1.-1"_s);
        bad("minus zero", "-0"_s);
        bad("leading blank", " 1.0"_s);
        bad("trailing blank", "1.0 "_s);
        bad("inner blank", "1. 0"_s);
        bad("line feed", "1.0\n"_s);
        bad("letters", "v1.0"_s);
        bad("letters behind", "1.0a"_s);
        bad("hexadecimal", "0x10"_s);
        bad("exponent", "1e2"_s);
        bad("digit grouping", "1,000"_s);
        bad("good before bad", "7.x"_s);
        bad("bad before good", "x.7"_s);
        bad("Arabic-Indic digits", "\u0661.\u0662"_s);
        bad("fullwidth digits", "\uff11.\uff10"_s);
        bad("null character", QString(QChar()) + QLatin1Char('1'));
    }

    void versionFromString()
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

    void versionsOrder_data()
    {
        QTest::addColumn<QString>("lower");
        QTest::addColumn<QString>("higher");

        QTest::newRow("first component") << "1.65535.65535.65535"_s
                                         << "2.0"_s;
        QTest::newRow("second component") << "1.9"_s
                                          << "1.10"_s;
        QTest::newRow("third component") << "1.2.3.65535"_s
                                         << "1.2.4"_s;
        QTest::newRow("fourth component") << "1.2.3"_s
                                          << "1.2.3.1"_s;
        QTest::newRow("high bit") << "32767.0"_s
                                  << "32768.0"_s;
    }

    void versionsOrder()
    {
        QFETCH(QString, lower);
        QFETCH(QString, higher);
        QVERIFY(::versionFromString(lower) < ::versionFromString(higher));
    }

    void versionToString_data()
    {
        QTest::addColumn<quint64>("version");
        QTest::addColumn<QString>("text");

        QTest::newRow("two components") << Q_UINT64_C(0x0001000000000000) << "1.0"_s;
        QTest::newRow("nothing") << quint64{0} << "0.0"_s;
        QTest::newRow("third component") << Q_UINT64_C(0x0001000000030000) << "1.0.3"_s;
        QTest::newRow("third component zero") << Q_UINT64_C(0x0001000200000004) << "1.2.0.4"_s;
        QTest::newRow("fourth component") << quint64{1} << "0.0.0.1"_s;
        QTest::newRow("zeros within a number stay") << Q_UINT64_C(0x000A001400640000) << "10.20.100"_s;
        QTest::newRow("largest") << std::numeric_limits<quint64>::max() << "65535.65535.65535.65535"_s;
    }

    void versionToString()
    {
        QFETCH(quint64, version);
        QFETCH(QString, text);
        QCOMPARE(::versionToString(version), text);
    }

    void versionRoundTrip_data()
    {
        QTest::addColumn<quint64>("version");

        for (int bit = 0; bit < 64; ++bit)
            QTest::addRow("bit %d", bit) << (quint64{1} << bit);
        QTest::newRow("all bits") << std::numeric_limits<quint64>::max();
        QTest::newRow("no bit") << quint64{0};
    }

    void versionRoundTrip()
    {
        QFETCH(quint64, version);
        bool ok = false;
        QCOMPARE(::versionFromString(::versionToString(version), &ok), version);
        QVERIFY(ok);
    }

    void mapToString_data()
    {
        QTest::addColumn<Map>("map");
        QTest::addColumn<QString>("text");

        QTest::newRow("empty") << Map() << "{}"_s;
        QTest::newRow("documented example") << Map{{"doneOk"_s, true}, {"values"_s, Map{{"count"_s, 5}}}}
                                            << R"({"doneOk": true, "values": {"count": 5}})"_s;
        QTest::newRow("keys in order")
            << Map{{"b"_s, 2}, {"a"_s, 1}, {"c"_s, 3}} << R"({"a": 1, "b": 2, "c": 3})"_s;
        QTest::newRow("empty key") << Map{{QString(), 1}} << R"({"": 1})"_s;

        auto const one = [](char const* row, QVariant const& value, QString const& text) {
            QTest::newRow(row) << Map{{"k"_s, value}} << "{\"k\": %1}"_s.arg(text);
        };
        one("false", false, "false"_s);
        one("int", -42, "-42"_s);
        one("uint", 4294967295U, "4294967295"_s);
        one("qint64", std::numeric_limits<qint64>::min(), "-9223372036854775808"_s);
        one("quint64", std::numeric_limits<quint64>::max(), "18446744073709551615"_s);
        one("quint16", QVariant::fromValue(quint16{65535}), "65535"_s);
        one("double", 1.5, "1.5"_s);
        one("string", "text"_s, "\"text\""_s);
        one("empty string", ""_s, "\"\""_s);
        one("null string", QString(), "\"\""_s);
        one("non-ASCII string", "N\u00b7m"_s, "\"N\u00b7m\""_s);
        one("string of digits", "5"_s, "\"5\""_s);
        one("byte array", QByteArray("bytes"), "bytes"_s);
        one("character", QChar(QLatin1Char('x')), "x"_s);
        one("date", QDate(2026, 3, 9), "2026-03-09"_s);
        one("uuid", QUuid("{fe68f24c-ac43-4833-abc7-7d9f33744448}"_s),
            "{fe68f24c-ac43-4833-abc7-7d9f33744448}"_s);
        one("invalid", QVariant(), "<invalid>"_s);
        one("null of a type", QVariant(QVariant::Int), "0"_s);
        one("no text", QPoint(1, 2), "<QPoint>"_s);
        one("json object", QJsonObject{{"a"_s, 1}}, "<QJsonObject>"_s);
        one("object pointer", QVariant::fromValue<QObject*>(nullptr), "<QObject*>"_s);

        one("empty map", Map(), "{}"_s);
        one("empty hash", QVariantHash(), "{}"_s);
        one("empty list", QVariantList(), "[]"_s);
        one("hash", QVariantHash{{"x"_s, 1}}, R"({"x": 1})"_s);
        one("list", QVariantList{1, "two"_s, QVariant(), Map{{"x"_s, true}}},
            R"([1, "two", <invalid>, {"x": true}])"_s);
        one("string list of one", QStringList{"a"_s}, R"(["a"])"_s);
        one("string list", QStringList{"a"_s, QString()}, R"(["a", ""])"_s);
        one("list in list", QVariantList{QVariant(QVariantList{1, 2}), QVariantHash{{"x"_s, 3}}},
            R"([[1, 2], {"x": 3}])"_s);
    }

    void mapToString()
    {
        QFETCH(Map, map);
        QFETCH(QString, text);
        QCOMPARE(convVariantMapToString(map), text);
    }

    void mapTextStaysOnOneLine_data()
    {
        QTest::addColumn<Map>("map");

        QString const lines = "a\nb\r\nc"_s;
        QTest::newRow("string") << Map{{"k"_s, lines}};
        QTest::newRow("key") << Map{{lines, 1}};
        QTest::newRow("byte array") << Map{{"k"_s, lines.toUtf8()}};
        QTest::newRow("string in a list") << Map{{"k"_s, QStringList{lines}}};
    }

    void mapTextStaysOnOneLine()
    {
        QFETCH(Map, map);
        QString const text = convVariantMapToString(map);
        QVERIFY2(!text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r')), qPrintable(text));
    }

    void hashTextDependsOnContentOnly()
    {
        constexpr int count = 500;
        QVariantHash forwards;
        QVariantHash backwards;
        backwards.reserve(10 * count); // another number of buckets: another order of iteration
        Map sorted;
        for (int i = 0; i < count; ++i) {
            forwards.insert("key%1"_s.arg(i), i);
            sorted.insert("key%1"_s.arg(i), i);
            backwards.insert("key%1"_s.arg(count - 1 - i), count - 1 - i);
        }
        QVERIFY(forwards.keys() != backwards.keys());

        auto const text = [](QVariant const& value) { return convVariantMapToString({{"k"_s, value}}); };
        QCOMPARE(text(forwards), text(backwards));
        QCOMPARE(text(forwards), text(sorted));
    }

    void deepMapIsCutOff_data()
    {
        QTest::addColumn<int>("depth");
        QTest::addColumn<bool>("inLists");

        QTest::newRow("maps") << 1000 << false;
        QTest::newRow("lists") << 1000 << true;
    }

    void deepMapIsCutOff()
    {
        QFETCH(int, depth);
        QFETCH(bool, inLists);
        QVariant value = "innermost"_s;
        QVariant shallow = value;
        constexpr int reasonable = 8; // a reply of the device never nests deeper
        for (int i = 0; i < depth; ++i) {
            value = inLists ? QVariant(QVariantList{value}) : QVariant(Map{{"k"_s, value}});
            if (i == reasonable)
                shallow = value;
        }
        QString const text = convVariantMapToString({{"k"_s, value}});
        QVERIFY2(text.contains("..."_s), qPrintable(text.left(80)));
        QVERIFY(!text.contains("innermost"_s));
        QVERIFY2(text.size() < 1000, qPrintable(QString::number(text.size())));
        QCOMPARE(text.count(QLatin1Char('{')), text.count(QLatin1Char('}')));
        QCOMPARE(text.count(QLatin1Char('[')), text.count(QLatin1Char(']')));

        QString const whole = convVariantMapToString({{"k"_s, shallow}});
        QVERIFY(whole.contains("innermost"_s));
    }

    void largeMapIsComplete()
    {
        constexpr int count = 100000;
        Map map;
        for (int i = 0; i < count; ++i)
            map.insert("key%1"_s.arg(i, 6, 10, QLatin1Char('0')), i);
        QString const text = convVariantMapToString(map);
        QVERIFY(text.startsWith("{\"key000000\": 0, \"key000001\": 1, "_s));
        QVERIFY(text.endsWith(", \"key099999\": 99999}"_s));
        QCOMPARE(text.count(": "_s), count);
    }

    void dateHasFixedFormat()
    {
        QRegularExpression const format(R"(\A\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\z)"_s);
        QString const date = getDate();
        QVERIFY2(format.match(date).hasMatch(), qPrintable(date));
        QVERIFY(QDateTime::fromString(date, "yyyy-MM-dd HH:mm:ss.zzz"_s).isValid());
    }

    void dateComesFromSource()
    {
        QDateTime now(QDate(2026, 3, 9), QTime(14, 5, 59, 120));
        setDateSource([&now] { return now; });
        QCOMPARE(getDate(), "2026-03-09 14:05:59.120"_s);
        QCOMPARE(getDate(), "2026-03-09 14:05:59.120"_s);
        now = QDateTime(QDate(1, 12, 1), QTime(0, 0, 0, 7));
        QCOMPARE(getDate(), "0001-12-01 00:00:00.007"_s);

        setDateSource([] { return QDateTime(QDate(2030, 1, 2), QTime(23, 59, 59, 999)); });
        QCOMPARE(getDate(), "2030-01-02 23:59:59.999"_s);
    }

    void emptySourceGivesSystemClockBack()
    {
        auto alive = std::make_shared<int>(0);
        setDateSource([alive] { return QDateTime(QDate(1999, 1, 1), QTime(0, 0)); });
        QCOMPARE(getDate(), "1999-01-01 00:00:00.000"_s);
        setDateSource({});
        QCOMPARE(alive.use_count(), 1L);
        QString const date = getDate();
        QVERIFY2(!date.startsWith("1999-"_s), qPrintable(date));
        QCOMPARE(date.size(), 23);
    }

    void objectCarriesName()
    {
        DObject const object("ch_1"_s, nullptr);
        QCOMPARE(object.objectName(), "ch_1"_s);
        QVERIFY(object.parent() == nullptr);
        QCOMPARE(object.metaObject()->className(), "DObject");
        QCOMPARE(object.metaObject()->superClass()->className(), "QObject");
        QVERIFY(DObject(QString(), nullptr).objectName().isEmpty());
    }

    void objectHasParent()
    {
        auto parent = std::make_unique<QObject>();
        QPointer<DObject> const child = new DObject("child"_s, parent.get());
        QCOMPARE(child->parent(), parent.get());
        parent.reset();
        QVERIFY(child.isNull());
    }
};

QTEST_GUILESS_MAIN(TestUtilities)
#include "tst_utilities.moc"
