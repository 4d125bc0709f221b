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
#include <QUuid>
#include <QtTest>

#include <limits>
#include <memory>

using Map = QMap<QString, QVariant>;

namespace
{

QChar operator""_c(char character)
{
    return QLatin1Char(character);
}

} // namespace

class TestUtilities : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setDateSource({}); }

    void versionFromString_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QChar>("separator");
        QTest::addColumn<bool>("isGood");
        QTest::addColumn<quint64>("version");

        auto const good = [](char const* rule, QString const& text, quint64 version,
                             QChar separator = '.'_c) {
            QTest::newRow(rule) << text << separator << true << version;
        };
        auto const bad = [](char const* rule, QString const& text, QChar separator = '.'_c) {
            QTest::newRow(rule) << text << separator << false << quint64{0};
        };

        good("two components", "1.0"_s, 0x0001'0000'0000'0000);
        good("one component", "1"_s, 0x0001'0000'0000'0000);
        good("three components", "1.0.0"_s, 0x0001'0000'0000'0000);
        good("four components", "1.2.3.4"_s, 0x0001'0002'0003'0004);
        good("decimal, not octal or hexadecimal", "10.16"_s, 0x000A'0010'0000'0000);
        good("largest", "65535.65535.65535.65535"_s, std::numeric_limits<quint64>::max());
        good("zero is good", "0.0"_s, 0);
        good("other separator", "3-7"_s, 0x0003'0007'0000'0000, '-'_c);
        good("non-ASCII separator", "3\u00b77"_s, 0x0003'0007'0000'0000, QChar(0x00b7));

        bad("dot where another separator is asked for", "3.7"_s, '-'_c);
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
        QFETCH(bool, isGood);
        QFETCH(quint64, version);

        // Whatever stood in ok before does not count.
        for (bool const before : {false, true}) {
            bool ok = before;
            QCOMPARE(::versionFromString(text, &ok, separator), version);
            QCOMPARE(ok, isGood);
        }
        QCOMPARE(::versionFromString(text, nullptr, separator), version);
        if (separator == '.'_c)
            QCOMPARE(::versionFromString(text), version);
    }

    void versionToString_data()
    {
        QTest::addColumn<quint64>("version");
        QTest::addColumn<QString>("text");

        QTest::newRow("two components") << quint64{0x0001'0000'0000'0000} << "1.0"_s;
        QTest::newRow("nothing") << quint64{0} << "0.0"_s;
        QTest::newRow("third component") << quint64{0x0001'0000'0003'0000} << "1.0.3"_s;
        QTest::newRow("third component zero") << quint64{0x0001'0002'0000'0004} << "1.2.0.4"_s;
        QTest::newRow("fourth component") << quint64{1} << "0.0.0.1"_s;
        QTest::newRow("zeros within a number stay") << quint64{0x000A'0014'0064'0000} << "10.20.100"_s;
        QTest::newRow("largest") << std::numeric_limits<quint64>::max() << "65535.65535.65535.65535"_s;
    }

    void versionToString()
    {
        QFETCH(quint64, version);
        QFETCH(QString, text);
        QCOMPARE(::versionToString(version), text);
        QCOMPARE(::versionFromString(text), version);
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
        QTest::newRow("control characters in a key") << Map{{"a\nb"_s, 1}} << R"({"a\u000ab": 1})"_s;

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
        one("control characters", "a\nb\r\u2028\u2029\u0000"_s, R"("a\u000ab\u000d\u2028\u2029\u0000")"_s);
        one("control characters in bytes", QByteArray("a\nb"), R"(a\u000ab)"_s);
        one("control characters in a list", QStringList{"a\nb"_s}, R"(["a\u000ab"])"_s);
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

    void hashTextDependsOnContentOnly()
    {
        constexpr int count = 10'000;
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
        QCOMPARE(text(sorted).count(": "_s), count + 1);
    }

    void deepMapIsCutOff_data()
    {
        QTest::addColumn<bool>("inLists");

        QTest::newRow("maps") << false;
        QTest::newRow("lists") << true;
    }

    void deepMapIsCutOff()
    {
        QFETCH(bool, inLists);
        auto const nested = [inLists](int depth) {
            QVariant value = "innermost"_s;
            for (int i = 0; i < depth; ++i)
                value = inLists ? QVariant(QVariantList{value}) : QVariant(Map{{"k"_s, value}});
            return convVariantMapToString({{"k"_s, value}});
        };
        // A reply of the device never nests deeper.
        QVERIFY(nested(8).contains("innermost"_s));
        QString const text = nested(1000);
        QVERIFY2(text.contains("..."_s) && text.size() < 1000, qPrintable(text.left(80)));
        QCOMPARE(text.count('{'_c), text.count('}'_c));
        QCOMPARE(text.count('['_c), text.count(']'_c));
    }

    void dateComesFromSource()
    {
        QDateTime now(QDate(2026, 3, 9), QTime(14, 5, 59, 120));
        setDateSource([&now] { return now; });
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
        setDateSource({});
        QCOMPARE(alive.use_count(), 1L);
        QString const date = getDate();
        QVERIFY2(QDateTime::fromString(date, "yyyy-MM-dd HH:mm:ss.zzz"_s).date().year() > 2000,
                 qPrintable(date));
    }

    void objectHasNameAndParent()
    {
        auto parent = std::make_unique<QObject>();
        QPointer<DObject> const child = new DObject("ch_1"_s, parent.get());
        QCOMPARE(child->objectName(), "ch_1"_s);
        QCOMPARE(child->metaObject()->className(), "DObject");
        QCOMPARE(child->metaObject()->superClass()->className(), "QObject");
        parent.reset();
        QVERIFY(child.isNull());
    }
};

QTEST_GUILESS_MAIN(TestUtilities)
#include "tst_utilities.moc"
