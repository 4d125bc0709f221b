#include "complaint.h"
#include "literals.h"
#include "message_capture.h"
#include "scratch_folder.h"

#include <files/json_input.h>

#include <QtTest>

#include <functional>
#include <limits>

using Use = std::function<void(JsonInput const&)>;
Q_DECLARE_METATYPE(Use)

/// Files that people wrote by hand: what is read from them, and what is said when they are not right.
class TestJsonInput : public QObject
{
    Q_OBJECT

private slots:
    void values_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QVariant>("expected");

        auto const row = [](char const* name, char const* content, QVariant const& expected) {
            QTest::newRow(name) << QByteArray(content) << expected;
        };
        row("null", "null", QVariant());
        row("true", "true", true);
        row("false", "false", false);
        row("zero", "0", 0);
        row("minus zero", "-0", 0);
        row("int", "-17", -17);
        row("greatest int", "2147483647", std::numeric_limits<int>::max());
        row("least int", "-2147483648", std::numeric_limits<int>::min());
        row("one above int", "2147483648", qlonglong{2147483648});
        row("one below int", "-2147483649", qlonglong{-2147483649});
        row("greatest long", "9223372036854775807", std::numeric_limits<qlonglong>::max());
        row("least long", "-9223372036854775808", std::numeric_limits<qlonglong>::min());
        row("one above long", "9223372036854775808", qulonglong{9223372036854775808ULL});
        row("greatest unsigned", "18446744073709551615", std::numeric_limits<qulonglong>::max());
        row("one above unsigned", "18446744073709551616", 18446744073709551616.0);
        row("one below long", "-9223372036854775809", -9223372036854775809.0);
        row("fraction", "0.5", 0.5);
        row("whole fraction", "1.0", 1.0);
        row("exponent", "1e2", 100.0);
        row("negative exponent", "25E-1", 2.5);
        row("greatest double", "1.7976931348623157e308", std::numeric_limits<double>::max());
        row("too small for a double", "1e-400", 0.0);
        row("text", "\"hello\"", "hello"_s);
        row("empty text", "\"\"", ""_s);
        row("text that looks like a number", "\"1\"", "1"_s);
        row("escapes", "\"\\\"\\\\\\/\\b\\f\\n\\r\\tA\\u00e9\\ud83d\\ude00\"",
            "\"\\/\b\f\n\r\tA\u00e9\U0001F600"_s);
        row("UTF-8", "\"\xc3\xa9\xf0\x9f\x98\x80\"", "\u00e9\U0001F600"_s);
        row("escaped NUL", R"("a\u0000b")", QString::fromLatin1("a\0b", 3));
        row("list", "[1, \"2\", null]", QVariantList({1, "2"_s, QVariant()}));
        row("object", "{\"b\": 1, \"a\": {\"c\": []}}",
            QVariantMap({{"b"_s, 1}, {"a"_s, QVariantMap({{"c"_s, QVariantList()}})}}));
        row("empty key", "{\"\": 1}", QVariantMap({{QString(), 1}}));
        row("byte order mark", "\xef\xbb\xbf[]", QVariantList());
        row("CRLF", "[\r\n1,\r\n2\r\n]\r\n", QVariantList({1, 2}));
        row("blanks around", " \n\t7 \n", 7);
        row("same key in different objects", "[{\"a\": 1}, {\"a\": 2}]",
            QVariantList({QVariantMap({{"a"_s, 1}}), QVariantMap({{"a"_s, 2}})}));
    }

    void values()
    {
        QFETCH(QByteArray, content);
        QFETCH(QVariant, expected);
        QVariant const value = read(content).toVariant();
        QCOMPARE(value.typeName(), expected.typeName());
        QCOMPARE(value, expected);
    }

    void nestedTypes()
    {
        auto const map = read(R"({"i": 1, "l": 3000000000, "u": 10000000000000000000, "d": 1.0, "b": true,
                              "s": "1", "n": null, "o": {}, "a": [1, 1.0, "1", true, null]})")
                             .toVariantMap();
        QStringList types;
        for (auto const& value : map)
            types += QString::fromLatin1(value.typeName());
        QCOMPARE(types.join(QLatin1Char(' ')),
                 "QVariantList bool double int qlonglong  QVariantMap QString qulonglong"_s);
        types.clear();
        auto const list = map.value("a"_s).toList();
        for (auto const& value : list)
            types += QString::fromLatin1(value.typeName());
        QCOMPARE(types.join(QLatin1Char(' ')), "int double QString bool "_s);
    }

    void integers_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<qint64>("lowest");
        QTest::addColumn<qint64>("highest");
        QTest::addColumn<bool>("fits");

        constexpr qint64 least = std::numeric_limits<qint64>::min();
        constexpr qint64 most = std::numeric_limits<qint64>::max();
        auto const row = [](char const* name, char const* content, qint64 lowest, qint64 highest, bool fits) {
            QTest::newRow(name) << QByteArray(content) << lowest << highest << fits;
        };
        row("lowest", "3", 3, 5, true);
        row("highest", "5", 3, 5, true);
        row("one below", "2", 3, 5, false);
        row("one above", "6", 3, 5, false);
        row("only one", "-4", -4, -4, true);
        row("above int", "2147483648", least, most, true);
        row("above int, not in range", "2147483648", 0, 2147483647, false);
        row("greatest", "9223372036854775807", least, most, true);
        row("least", "-9223372036854775808", least, most, true);
        row("above the greatest", "9223372036854775808", least, most, false);
        row("greatest unsigned", "18446744073709551615", least, most, false);
        row("far above", "99999999999999999999", least, most, false);
        row("fraction", "3.5", 3, 5, false);
        row("whole number with a point", "4.0", 3, 5, false);
        row("exponent", "4e0", 3, 5, false);
        row("text", "\"4\"", 3, 5, false);
        row("truth value", "true", 0, 1, false);
        row("null", "null", 0, 1, false);
        row("list", "[4]", 3, 5, false);
        row("object", "{}", 0, 5, false);
    }

    void integers()
    {
        QFETCH(QByteArray, content);
        QFETCH(qint64, lowest);
        QFETCH(qint64, highest);
        QFETCH(bool, fits);
        auto const input = read("{\"n\":\n" + content + "\n}");
        qint64 number = 0;
        QString const complaint = complaintOf([&] { number = input.at("n"_s).toInteger(lowest, highest); });
        if (fits) {
            QCOMPARE(complaint, "no complaint"_s);
            QCOMPARE(QByteArray::number(number), content);
        } else {
            QCOMPARE(complaint,
                     "%1:2: n: must be a whole number from %2 to %3"_s.arg(
                         m_folder.filePath("in.json"_s), QString::number(lowest), QString::number(highest)));
        }
    }

    void keysAndItems()
    {
        auto const input = read(R"({"b": ["x", "y"], "a": null})");
        QCOMPARE(input.keys(), QStringList({"a"_s, "b"_s}));
        QVERIFY(input.has("a"_s)); // null is a value
        QVERIFY(!input.has("c"_s));
        input.allowKeys({"b"_s, "c"_s, "a"_s});
        auto const items = input.at("b"_s).items();
        QCOMPARE(items.size(), std::size_t{2});
        QCOMPARE(items[0].toText(), "x"_s);
        QCOMPARE(items[1].toText(), "y"_s);
        QCOMPARE(read("true").toBool(), true);
        QCOMPARE(read("false").toBool(), false);
    }

    void emptyContainers()
    {
        QVERIFY(read("[]").items().empty());
        QVERIFY(read("{}").keys().isEmpty());
        read("{}").allowKeys({});
        QVERIFY(read("{}").toVariantMap().isEmpty());
    }

    void valuesOutliveTheirFile()
    {
        auto const inner = [this] { return read(R"({"a": [{"b": "kept"}]})").at("a"_s).items()[0]; }();
        QFile::remove(m_folder.filePath("in.json"_s));
        QCOMPARE(inner.at("b"_s).toText(), "kept"_s);
    }

    void notThere_data()
    {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QString>("message");
        QTest::newRow("missing") << m_folder.filePath("missing.json"_s) << "No such file or directory"_s;
        QTest::newRow("directory") << m_folder.path() << "file to open is a directory"_s;
        QTest::newRow("below a file") << m_folder.write("file"_s, "{}") + "/x.json"_s
                                      << "Not a directory"_s;
        QTest::newRow("not readable") << "/proc/self/mem"_s
                                      << "Input/output error"_s;
        QTest::newRow("without end") << "/dev/zero"_s
                                     << "larger than 4 MiB"_s;
    }

    void notThere()
    {
        QFETCH(QString, fileName);
        QFETCH(QString, message);
        QCOMPARE(complaintOf([&] { JsonInput::fromFile(fileName); }), fileName + ": "_s + message);
    }

    void noName()
    {
        MessageCapture log;
        QCOMPARE(complaintOf([] { JsonInput::fromFile(QString()); }), "the name of the file is empty"_s);
        QVERIFY(log.lines.isEmpty());
    }

    void notJson_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("what");

        auto const row = [](char const* name, QByteArray const& content, char const* place,
                            char const* what) {
            QTest::newRow(name) << content << QString::fromLatin1(place) << QString::fromUtf8(what);
        };
        row("empty", "", "1:1",
            "while parsing value - unexpected end of input; expected '[', '{', or a literal");
        row("only blanks", " \n\n ", "3:2",
            "while parsing value - unexpected end of input; expected '[', '{', or a literal");
        row("plain text", "hello", "1:1", "while parsing value - invalid literal; last read: 'h'");
        row("not closed", "{", "1:2",
            "while parsing object key - unexpected end of input; expected string literal");
        row("comma at the end", "{\n  \"a\": 1,\n}", "3:1",
            "while parsing object key - unexpected '}'; expected string literal");
        row("comma at the end, CRLF", "{\r\n\"a\": 1,\r\n}", "3:1",
            "while parsing object key - unexpected '}'; expected string literal");
        row("single quotes", "{'a': 1}", "1:2",
            "while parsing object key - invalid literal; last read: '{''; expected string literal");
        row("no colon", "{\"a\" 1}", "1:6",
            "while parsing object separator - unexpected number literal; expected ':'");
        row("two values", "{} {}", "1:4", "while parsing value - unexpected '{'; expected end of input");
        row("closed twice", "{}\n]", "2:1", "while parsing value - unexpected ']'; expected end of input");
        row("cut literal", "{\"a\": tru}", "1:10",
            "while parsing value - invalid literal; last read: '\"a\": tru}'");
        row("leading zero", "{\"a\": 01}", "1:8",
            "while parsing object - unexpected number literal; expected '}'");
        row("plus sign", "[+1]", "1:2", "while parsing value - invalid literal; last read: '[+'");
        row("NaN", "[NaN]", "1:2", "while parsing value - invalid literal; last read: '[N'");
        row("hexadecimal", "[0x10]", "1:3",
            "while parsing array - invalid literal; last read: '0x'; expected ']'");
        row("comment", "[ // x\n]", "1:3", "while parsing value - invalid literal; last read: '[ /'");
        row("lone minus", "[-]", "1:3",
            "while parsing value - invalid number; expected digit after '-'; last read: '-]'");
        row("nothing behind the point", "[1.]", "1:4",
            "while parsing value - invalid number; expected digit after '.'; last read: '1.]'");
        row("unknown escape", "[\"\\x\"]", "1:4",
            "while parsing value - invalid string: forbidden character after backslash; last read: '\"\\x'");
        row("half an escaped pair", "[\"\\ud800\"]", "1:9",
            "while parsing value - invalid string: surrogate U+D800..U+DBFF must be followed by "
            "U+DC00..U+DFFF; "
            "last read: '\"\\ud800\"'");
        row("invalid UTF-8", "[\"\xff\"]", "1:3",
            "while parsing value - invalid string: ill-formed UTF-8 byte; last read: '\"\xef\xbf\xbd'");
        row("invalid UTF-8 in a key", "{\"\xc3\x28\": 1}", "1:4",
            "while parsing object key - invalid string: ill-formed UTF-8 byte; last read: '\"\xef\xbf\xbd('; "
            "expected string literal");
        row("UTF-16", QByteArray("\xff\xfe{\0}\0", 6), "1:1",
            "while parsing value - invalid literal; last read: '\xef\xbf\xbd'");
        row("NUL in a text", QByteArray("[\"\0\"]", 5), "1:3",
            "while parsing value - invalid string: control character U+0000 (NUL) must be escaped to "
            "\\u0000; "
            "last read: '\"<U+0000>'");
        row("half a byte order mark", "\xef\xbb{}", "1:3",
            "while parsing value - invalid BOM; must be 0xEF 0xBB 0xBF if given; last read: "
            "'\xef\xbf\xbd\xef\xbf\xbd{'");
        row("tab in a text", "[\"\t\"]", "1:3",
            "while parsing value - invalid string: control character U+0009 (HT) must be escaped to \\u0009 "
            "or "
            "\\t; last read: '\"<U+0009>'");
        row("long rest", "[\"" + QByteArray(1000, 'x'), "1:1003",
            "while parsing value - invalid string: missing closing quote; last read: '\"");
    }

    void notJson()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, place);
        QFETCH(QString, what);
        QString expected = "syntax error "_s + what;
        if (content.size() > 1000)
            expected = expected.leftJustified(200, QLatin1Char('x')) + "..."_s;
        QCOMPARE(complaintAbout(content), "FILE:%1: not JSON: %2"_s.arg(place, expected));
    }

    void textWithANewlineInItIsReportedWhereItStands()
    {
        // The line that somebody has to look at is the one where the text begins.
        QString const complaint = complaintAbout("{\"a\": \"b\n\"}");
        QVERIFY2(complaint.startsWith("FILE:1:"_s), qPrintable(complaint));
    }

    void limits_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");

        auto const nested = [](int depth) { return QByteArray(depth, '[') + QByteArray(depth, ']'); };
        QTest::newRow("deepest") << nested(32) << "no complaint"_s;
        QTest::newRow("one deeper") << "\n\n" + nested(33) << "FILE:3: nested deeper than 32 levels"_s;
        QTest::newRow("a million brackets")
            << QByteArray(1'000'000, '[') << "FILE:1: nested deeper than 32 levels"_s;
        QTest::newRow("a million lists") << nested(1'000'000) << "FILE:1: nested deeper than 32 levels"_s;
        QTest::newRow("objects one deeper")
            << QByteArray("{\"a\":\n").repeated(33) << "FILE:33: nested deeper than 32 levels"_s;
        QTest::newRow("side by side") << "[" + QByteArray("[[]],").repeated(100) + "[]]"
                                      << "no complaint"_s;
        QTest::newRow("number too large")
            << QByteArray("{\n\"a\": 1e400}") << "FILE:2: not usable JSON: number overflow parsing '1e400'"_s;
        QTest::newRow("number too small")
            << QByteArray("[\n-1e400\n]") << "FILE:2: not usable JSON: number overflow parsing '-1e400'"_s;
        QTest::newRow("number of a thousand digits")
            << QByteArray(1000, '9')
            << "FILE:1: not usable JSON: "_s
                   + "number overflow parsing '"_s.leftJustified(200, QLatin1Char('9')) + "..."_s;
        QTest::newRow("key twice") << QByteArray("{\"a\": 1,\n\"b\": 2,\n\"a\": 1}")
                                   << "FILE:3: the key \"a\" stands twice in one object"_s;
        QTest::newRow("key twice, escaped") << QByteArray("{\"a\": 1, \"\\u0061\": 1}")
                                            << "FILE:1: the key \"a\" stands twice in one object"_s;
        QTest::newRow("key twice, nested") << QByteArray("{\"a\": 1,\n\"b\": {\"a\": 1,\n\"a\": 2}}")
                                           << "FILE:3: b: the key \"a\" stands twice in one object"_s;
        QTest::newRow("key twice, in a list") << QByteArray("{\"s\": [{}, {\"a\": 1,\n\"a\": 2}]}")
                                              << "FILE:2: s[1]: the key \"a\" stands twice in one object"_s;
        QTest::newRow("NUL behind the value") << QByteArray("{}\0", 3) << "FILE:1:3: not JSON: NUL byte"_s;
        QTest::newRow("NUL and more") << QByteArray("{}\n\0 no JSON", 12) << "FILE:2:1: not JSON: NUL byte"_s;
        QTest::newRow("NUL between") << QByteArray("{\0}", 3) << "FILE:1:2: not JSON: NUL byte"_s;
    }

    void limits()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        QCOMPARE(complaintAbout(content), message);
    }

    void sizeLimit()
    {
        constexpr int limit = 4 * 1024 * 1024;
        QCOMPARE(complaintAbout("[]" + QByteArray(limit - 2, ' ')), "no complaint"_s);
        QCOMPARE(complaintAbout("[]" + QByteArray(limit - 1, ' ')), "FILE: larger than 4 MiB"_s);
    }

    void everythingFromAPipeIsRead()
    {
        // More than a pipe holds at once.
        QString const pipe = m_folder.filePath("pipe"_s);
        m_folder.write("long.json"_s, "[" + QByteArray("1,").repeated(100'000) + "1]");
        QProcess writer;
        writer.setWorkingDirectory(m_folder.path());
        QCOMPARE(QProcess::execute("mkfifo"_s, {pipe}), 0);
        writer.start("sh"_s, {"-c"_s, "cat long.json > pipe"_s});
        QVERIFY(writer.waitForStarted());
        QCOMPARE(JsonInput::fromFile(pipe).items().size(), std::size_t{100'001});
        QVERIFY(writer.waitForFinished());
    }

    void slowPipe()
    {
        // Who has opened it takes longer to write than is waited for one who has not.
        QString const pipe = m_folder.filePath("slow"_s);
        QCOMPARE(QProcess::execute("mkfifo"_s, {pipe}), 0);
        QProcess writer;
        writer.start("sh"_s, {"-c"_s, "(sleep 4; printf '[1'; sleep 1; printf ']') > \"$0\""_s, pipe});
        QVERIFY(writer.waitForStarted());
        QCOMPARE(JsonInput::fromFile(pipe).items().size(), std::size_t{1});
        QVERIFY(writer.waitForFinished());
    }

    void pipeWithoutAWriter()
    {
        QString const pipe = m_folder.filePath("dry"_s);
        QCOMPARE(QProcess::execute("mkfifo"_s, {pipe}), 0);
        QCOMPARE(complaintOf([&pipe] { JsonInput::fromFile(pipe); }),
                 pipe + ": nobody writes into this pipe"_s);
    }

    void wrongUse_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<Use>("use");
        QTest::addColumn<QString>("message");

        QString const a = "a"_s;
        auto const row = [](char const* name, QByteArray const& content, Use const& use,
                            char const* message) {
            QTest::newRow(name) << content << use << QString::fromUtf8(message);
        };
        struct Kind
        {
            char const* value;
            char const* name;
        };
        Kind const kinds[] = {{"null", "null"},           {"true", "a truth value"}, {"0", "a number"},
                              {"3000000000", "a number"}, {"1.5", "a number"},       {"\"t\"", "a text"},
                              {"[]", "a list"},           {"{}", "an object"}};
        struct Accessor
        {
            char const* name;
            char const* wanted;
            QList<QByteArray> accepted;
            Use use;
        };
        Accessor const accessors[] = {
            {"toBool", "true or false", {"true"}, [](JsonInput const& in) { in.toBool(); }},
            {"toText", "a text", {"\"t\""}, [](JsonInput const& in) { in.toText(); }},
            {"items", "a list", {"[]"}, [](JsonInput const& in) { in.items(); }},
            {"keys", "an object", {"{}"}, [](JsonInput const& in) { in.keys(); }},
            {"has", "an object", {"{}"}, [](JsonInput const& in) { in.has("x"_s); }},
            {"allowKeys", "an object", {"{}"}, [](JsonInput const& in) { in.allowKeys({}); }},
            {"toVariantMap", "an object", {"{}"}, [](JsonInput const& in) { in.toVariantMap(); }},
        };
        for (auto const& accessor : accessors) {
            for (auto const& kind : kinds) {
                QString const message = accessor.accepted.contains(kind.value)
                                            ? "no complaint"_s
                                            : "FILE:2: a: must be %1, not %2"_s.arg(
                                                QLatin1String(accessor.wanted), QLatin1String(kind.name));
                QTest::addRow("%s of %s", accessor.name, kind.value)
                    << "{\n\"a\": " + QByteArray(kind.value) + "\n\n}"
                    << Use([a, use = accessor.use](JsonInput const& in) { use(in.at(a)); }) << message;
            }
        }
        row(
            "at of a list", "[]", [a](JsonInput const& in) { in.at(a); },
            "FILE:1: must be an object, not a list");
        row(
            "missing key", "\n{}", [a](JsonInput const& in) { in.at(a); },
            "FILE:2: the key \"a\" is missing");
        row(
            "missing key, nested", "{\"b\":\n{\"c\": 1}}", [a](JsonInput const& in) { in.at("b"_s).at(a); },
            "FILE:2: b: the key \"a\" is missing");
        row(
            "unknown key", "{\"a\": 1,\n\"z\": 2}",
            [a](JsonInput const& in) {
                in.allowKeys({a, "b"_s});
            },
            "FILE:2: unknown key \"z\", known are a, b");
        row(
            "unknown key, nested", "{\"a\":\n{\n\"z\": 2}}",
            [a](JsonInput const& in) { in.at(a).allowKeys({"b"_s}); },
            "FILE:3: a: unknown key \"z\", known are b");
        row(
            "key in another case", "{\"A\": 1}", [a](JsonInput const& in) { in.allowKeys({a}); },
            "FILE:1: unknown key \"A\", known are a");
        row(
            "item of a list", "{\"a\": [1,\n[true,\n\"x\"]]}",
            [a](JsonInput const& in) { in.at(a).items()[1].items()[1].toBool(); },
            "FILE:3: a[1][1]: must be true or false, not a text");
        row(
            "item of the outermost list", "[1,\n2]", [](JsonInput const& in) { in.items()[1].toBool(); },
            "FILE:2: [1]: must be true or false, not a number");
        row(
            "key of an item", "{\"a\": [{\"b\":\n1}]}",
            [a](JsonInput const& in) { in.at(a).items()[0].at("b"_s).toText(); },
            "FILE:2: a[0].b: must be a text, not a number");
        row(
            "number at the end of its line", "{\"a\":\n1\n}", [a](JsonInput const& in) { in.at(a).toText(); },
            "FILE:2: a: must be a text, not a number");
        row(
            "number at the end of its line, CRLF", "{\"a\":\r\n1.5\r\n}",
            [a](JsonInput const& in) { in.at(a).toText(); }, "FILE:2: a: must be a text, not a number");
        row(
            "great number at the end of its line", "{\"a\":\n18446744073709551615\n}",
            [a](JsonInput const& in) { in.at(a).toText(); }, "FILE:2: a: must be a text, not a number");
        row(
            "number at the end of the file", "\n\n7", [](JsonInput const& in) { in.toText(); },
            "FILE:3: must be a text, not a number");
        row(
            "literal at the end of its line", "{\"a\":\ntrue\n\n}",
            [a](JsonInput const& in) { in.at(a).toText(); }, "FILE:2: a: must be a text, not a truth value");
        row(
            "list that ends later", "{\"a\":\n[\n1\n]}", [a](JsonInput const& in) { in.at(a).toText(); },
            "FILE:2: a: must be a text, not a list");
        row(
            "behind a byte order mark", "\xef\xbb\xbf\n1", [](JsonInput const& in) { in.toText(); },
            "FILE:2: must be a text, not a number");
        row(
            "fail", "{\"a\":\n1}", [a](JsonInput const& in) { in.at(a).fail("is not nice"_s); },
            "FILE:2: a: is not nice");
    }

    void wrongUse()
    {
        QFETCH(QByteArray, content);
        QFETCH(Use, use);
        QFETCH(QString, message);
        QCOMPARE(complaintAbout(content, use), message);
    }

    void messagesAreOneLine_data()
    {
        QTest::addColumn<QByteArray>("key"); // as it stands in the file
        QTest::addColumn<QString>("shown");

        auto const row = [](char const* name, QByteArray const& key, QString const& shown) {
            QTest::newRow(name) << key << shown;
        };
        QString const emoji = "\U0001F600"_s;
        row("empty", "", QString());
        row("blank", " ", " "_s);
        row("dots and brackets", "x.y[0]", "x.y[0]"_s);
        row("percent", "100%1%2%3", "100%1%2%3"_s);
        row("umlauts", "\xc3\xa4", "\u00e4"_s);
        row("emoji", "\xf0\x9f\x98\x80", emoji);
        row("newline", "a\\nb", "a\\nb"_s);
        row("return", "a\\rb", "a\\rb"_s);
        row("NUL", "a\\u0000b", "a\\u0000b"_s);
        row("escape sequence", "\\u001b[31m", "\\u001b[31m"_s);
        row("line and paragraph separators", "a\\u2028b\\u2029c\xe2\x80\xa8", "a\\u2028b\\u2029c\\u2028"_s);
        row("longest", QByteArray(200, 'k'), QString(200, QLatin1Char('k')));
        row("one longer", QByteArray(201, 'k'), QString(200, QLatin1Char('k')) + "..."_s);
        row("very long", QByteArray(100'000, 'k'), QString(200, QLatin1Char('k')) + "..."_s);
        row("emoji at the cut", "x" + QByteArray("\xf0\x9f\x98\x80").repeated(500),
            QLatin1Char('x') + emoji.repeated(99) + "..."_s);
    }

    void messagesAreOneLine()
    {
        QFETCH(QByteArray, key);
        QFETCH(QString, shown);
        QByteArray const content = "{\"" + key + "\": 1}";
        QCOMPARE(complaintAbout(content, [](JsonInput const& in) { in.allowKeys({}); }),
                 "FILE:1: unknown key \"%1\", known are "_s.arg(shown));
        QCOMPARE(complaintAbout("{\"" + key + "\": 1, \"" + key + "\": 1}"),
                 "FILE:1: the key \"%1\" stands twice in one object"_s.arg(shown));
        if (!shown.isEmpty())
            QCOMPARE(complaintAbout(content, [](JsonInput const& in) { in.at(in.keys().first()).toBool(); }),
                     "FILE:1: %1: must be true or false, not a number"_s.arg(shown));
    }

    void fileNamesStandAsTheyAre()
    {
        QString const fileName = m_folder.write("100%1%2%3 \u00e4.json"_s, "{\"a\": 1}");
        QCOMPARE(complaintOf([&] { JsonInput::fromFile(fileName).at("a"_s).toBool(); }),
                 fileName + ":1: a: must be true or false, not a number"_s);
        m_folder.write("100%1%2%3 \u00e4.json"_s, "{\n");
        QCOMPARE(complaintOf([&] { JsonInput::fromFile(fileName); }),
                 fileName
                     + ":2:1: not JSON: syntax error while parsing object key - unexpected end of "
                       "input; expected string literal"_s);
        m_folder.write("100%1%2%3 \u00e4.json"_s, QByteArray(4 * 1024 * 1024 + 1, ' '));
        QCOMPARE(complaintOf([&] { JsonInput::fromFile(fileName); }), fileName + ": larger than 4 MiB"_s);
    }

    void fileNameBeyondAll()
    {
        // As a sequence can name one.
        QString const name = "/a"_s.repeated(1'000'000);
        QCOMPARE(complaintOf([&name] { JsonInput::fromFile(name); }),
                 name.left(200) + "...: File name too long"_s);
    }

private:
    JsonInput read(QByteArray const& content)
    {
        return JsonInput::fromFile(m_folder.write("in.json"_s, content));
    }
    /// The complaint about a file with this content, FILE standing for its name.
    QString complaintAbout(
        QByteArray const& content, Use const& use = [](JsonInput const&) {})
    {
        QString const fileName = m_folder.write("in.json"_s, content);
        return complaintOf([&] { use(JsonInput::fromFile(fileName)); }).replace(fileName, "FILE"_s);
    }

    ScratchFolder m_folder;
};

QTEST_GUILESS_MAIN(TestJsonInput)
#include "tst_json_input.moc"
