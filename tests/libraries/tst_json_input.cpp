#include "complaint.h"
#include "literals.h"
#include "message_capture.h"
#include "scratch_folder.h"
#include "variants.h"

#include <files/json_input.h>

#include <QtTest>

#include <functional>
#include <limits>

using Use = std::function<void(JsonInput const&)>;
Q_DECLARE_METATYPE(Use)

static QString const noComplaint = "no complaint"_s;

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
        row("minus zero", "-0", 0);
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
        row("whole fraction", "1.0", 1.0);
        row("exponent", "25E-1", 2.5);
        row("too small for a double", "1e-400", 0.0);
        row("text that looks like a number", "\"1\"", "1"_s);
        row("escapes", "\"\\\"\\\\\\/\\b\\f\\n\\r\\tA\\u00e9\\ud83d\\ude00\"",
            "\"\\/\b\f\n\r\tA\u00e9\U0001F600"_s);
        row("UTF-8", "\"\xc3\xa9\xf0\x9f\x98\x80\"", "\u00e9\U0001F600"_s);
        row("escaped NUL", R"("a\u0000b")", QString::fromLatin1("a\0b", 3));
        row("list", R"([1, 1.0, "1", true, null])", QVariantList({1, 1.0, "1"_s, true, QVariant()}));
        row("object", R"({"": 3000000000, "a": {"c": []}, "b": {}})",
            QVariantMap({{QString(), qlonglong{3000000000}},
                         {"a"_s, QVariantMap({{"c"_s, QVariantList()}})},
                         {"b"_s, QVariantMap()}}));
        row("same key in different objects", R"([{"a": 1}, {"a": 2}])",
            QVariantList({QVariantMap({{"a"_s, 1}}), QVariantMap({{"a"_s, 2}})}));
        row("byte order mark", "\xef\xbb\xbf[]", QVariantList());
        row("CRLF and blanks around", " \r\n\t[\r\n1,\r\n2\r\n]\r\n ", QVariantList({1, 2}));
    }

    void values()
    {
        QFETCH(QByteArray, content);
        QFETCH(QVariant, expected);
        QVariant const value = read(content).toVariant();
        QVERIFY2(isSame(value, expected), value.typeName());
    }

    void integers()
    {
        constexpr qint64 least = std::numeric_limits<qint64>::min();
        constexpr qint64 most = std::numeric_limits<qint64>::max();
        auto const number = [this](QByteArray const& content, qint64 lowest, qint64 highest) {
            qint64 result = 0;
            QString const complaint = complaintAbout("{\"n\":\n" + content + "\n}", [&](JsonInput const& in) {
                result = in.at("n"_s).toInteger(lowest, highest);
            });
            return complaint == noComplaint ? QString::number(result) : complaint;
        };
        QCOMPARE(number("3", 3, 5), "3"_s);
        QCOMPARE(number("5", 3, 5), "5"_s);
        QCOMPARE(number("-4", -4, -4), "-4"_s);
        QCOMPARE(number("2147483648", least, most), "2147483648"_s);
        QCOMPARE(number("9223372036854775807", least, most), "9223372036854775807"_s);
        QCOMPARE(number("-9223372036854775808", least, most), "-9223372036854775808"_s);
        for (char const* const content :
             {"2", "6", "4.0", "4.5", "4e0", "\"4\"", "true", "null", "[4]", "{}"})
            QCOMPARE(number(content, 3, 5), "FILE:2: n: must be a whole number from 3 to 5"_s);
        for (char const* const content : {"true", "null", "\"\"", "{}"}) // which QVariant takes for 0 or 1
            QCOMPARE(number(content, 0, 1), "FILE:2: n: must be a whole number from 0 to 1"_s);
        for (char const* const content :
             {"9223372036854775808", "18446744073709551615", "99999999999999999999"})
            QCOMPARE(number(content, least, most),
                     "FILE:2: n: must be a whole number from %1 to %2"_s.arg(least).arg(most));
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

    void valuesOutliveTheirFile()
    {
        auto const inner = [this] { return read(R"({"a": [{"b": "kept"}]})").at("a"_s).items()[0]; }();
        QFile::remove(m_folder.filePath("in.json"_s));
        QCOMPARE(inner.at("b"_s).toText(), "kept"_s);
    }

    void unusableFiles()
    {
        auto const complaintOfReading = [](QString const& fileName) {
            return complaintOf([&] { JsonInput::fromFile(fileName); });
        };
        QList<QPair<QString, QString>> const files{
            {m_folder.filePath("missing.json"_s), "No such file or directory"_s},
            {m_folder.path(), "file to open is a directory"_s},
            {m_folder.write("file"_s, "{}") + "/x.json"_s, "Not a directory"_s},
            {"/proc/self/mem"_s, "Input/output error"_s},
            {"/dev/zero"_s, "larger than 4 MiB"_s},
        };
        for (auto const& [name, message] : files)
            QCOMPARE(complaintOfReading(name), name + ": "_s + message);
        // A sequence can name one like this.
        QString const longName = "/a"_s.repeated(1'000'000);
        QCOMPARE(complaintOfReading(longName), longName.left(200) + "...: File name too long"_s);
        MessageCapture log;
        QCOMPARE(complaintOfReading(QString()), "the name of the file is empty"_s);
        QVERIFY(log.lines.isEmpty());
    }

    void notJson_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, QByteArray const& content, char const* message) {
            QTest::newRow(name) << content << "FILE:"_s + QString::fromUtf8(message);
        };
        row("empty", "",
            "1:1: not JSON: syntax error while parsing value - unexpected end of input; expected '[', '{', "
            "or a "
            "literal");
        row("only blanks", " \n\n ", "3:2: not JSON: ...");
        row("comma at the end", "{\n  \"a\": 1,\n}",
            "3:1: not JSON: syntax error while parsing object key - unexpected '}'; expected string literal");
        row("CRLF", "{\r\n\"a\": 1,\r\n}", "3:1: not JSON: ...");
        row("two values", "{} {}", "1:4: not JSON: ...");
        row("NaN", "[NaN]", "1:2: not JSON: ...");
        row("comment", "[ // x\n]", "1:3: not JSON: ...");
        row("invalid UTF-8", "[\"\xff\"]",
            "1:3: not JSON: syntax error while parsing value - invalid string: ill-formed UTF-8 byte; last "
            "read: '\"\xef\xbf\xbd'");
        row("tab in a text", "[\"\t\"]", "1:3: not JSON: ...");
        row("NUL in a text", QByteArray("[\"\0\"]", 5), "1:3: not JSON: syntax error ...");
        row("NUL behind the value", QByteArray("{}\0", 3), "1:3: not JSON: NUL byte");
        row("NUL and more", QByteArray("{}\n\0 no JSON", 12), "2:1: not JSON: NUL byte");
        row("NUL between", QByteArray("{\0}", 3), "1:2: not JSON: NUL byte");
        // The line that somebody has to look at is the one where the text begins.
        row("line break in a text", "{\"a\": \"b\n\"}", "1: not JSON: syntax error ...");
        row("long rest", "[\"" + QByteArray(1000, 'x'),
            "1:1003: not JSON: "
                + QByteArray("syntax error while parsing value - invalid string: missing closing quote; last "
                             "read: '\"")
                      .leftJustified(200, 'x')
                + "...");

        row("number too large", "{\n\"a\": 1e400}", "2: not usable JSON: number overflow parsing '1e400'");
        row("number too small", "[\n-1e400\n]", "2: not usable JSON: number overflow parsing '-1e400'");
        row("number of a thousand digits", QByteArray(1000, '9'),
            "1: not usable JSON: " + QByteArray("number overflow parsing '").leftJustified(200, '9') + "...");
        row("key twice", "{\"a\": 1,\n\"b\": 2,\n\"a\": 1}", "3: the key \"a\" stands twice in one object");
        row("key twice, escaped", R"({"a": 1, "\u0061": 1})", "1: the key \"a\" stands twice in one object");
        row("key twice, further in", "{\"s\": [{}, {\"b\": {\"a\": 1,\n\"a\": 2}}]}",
            "2: s[1].b: the key \"a\" stands twice in one object");
        row("nested too deep", "\n\n" + QByteArray(33, '['), "3: nested deeper than 32 levels");
        row("objects nested too deep", QByteArray("{\"a\":\n").repeated(33),
            "33: nested deeper than 32 levels");
        row("too large", "[]" + QByteArray((4 << 20) - 1, ' '), " larger than 4 MiB");
    }

    void notJson()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        QString const complaint = complaintAbout(content);
        bool const isWhole = !message.endsWith(" ..."_s);
        QCOMPARE(isWhole ? complaint : complaint.left(message.size() - 3) + "..."_s, message);
    }

    void justWithinTheLimits()
    {
        QCOMPARE(complaintAbout(QByteArray(32, '[') + QByteArray(32, ']')), noComplaint);
        QCOMPARE(complaintAbout("[" + QByteArray("[[]],").repeated(100) + "[]]"), noComplaint);
        QCOMPARE(complaintAbout("[]" + QByteArray((4 << 20) - 2, ' ')), noComplaint);
    }

    // More than a pipe holds at once, and from somebody who takes longer to write than is waited for a
    // writer.
    void everythingFromAPipeIsRead()
    {
        QString const pipe = m_folder.filePath("pipe"_s);
        QCOMPARE(QProcess::execute("mkfifo"_s, {pipe}), 0);
        m_folder.write("long.json"_s, QByteArray("1,").repeated(100'000));
        QProcess writer;
        writer.setWorkingDirectory(m_folder.path());
        writer.start("sh"_s, {"-c"_s, "(sleep 4; printf '['; cat long.json; sleep 1; printf '1]') > pipe"_s});
        QVERIFY(writer.waitForStarted());
        QCOMPARE(JsonInput::fromFile(pipe).items().size(), std::size_t{100'001});
        QVERIFY(writer.waitForFinished());
    }

    void kinds()
    {
        struct Kind
        {
            QByteArray value;
            char const* name;
        };
        QList<Kind> const kinds{{"null", "null"},    {"true", "a truth value"}, {"0", "a number"},
                                {"1.5", "a number"}, {"\"t\"", "a text"},       {"[]", "a list"},
                                {"{}", "an object"}};
        struct Accessor
        {
            char const* wanted;
            QByteArray accepted;
            Use use;
        };
        QList<Accessor> const accessors{
            {"true or false", "true", [](JsonInput const& in) { in.toBool(); }},
            {"a text", "\"t\"", [](JsonInput const& in) { in.toText(); }},
            {"a list", "[]", [](JsonInput const& in) { in.items(); }},
            {"an object", "{}", [](JsonInput const& in) { in.keys(); }},
            {"an object", "{}", [](JsonInput const& in) { in.has("x"_s); }},
            {"an object", "{}", [](JsonInput const& in) { in.allowKeys({}); }},
            {"an object", "{}", [](JsonInput const& in) { in.toVariantMap(); }},
        };
        for (auto const& accessor : accessors) {
            for (auto const& kind : kinds) {
                QString const message = "FILE:2: a: must be %1, not %2"_s.arg(QLatin1String(accessor.wanted),
                                                                              QLatin1String(kind.name));
                QCOMPARE(complaintAbout("{\n\"a\": " + kind.value + "\n\n}",
                                        [&](JsonInput const& in) { accessor.use(in.at("a"_s)); }),
                         kind.value == accessor.accepted ? noComplaint : message);
            }
        }
        QCOMPARE(complaintAbout("[]", [](JsonInput const& in) { in.at("a"_s); }),
                 "FILE:1: must be an object, not a list"_s);
    }

    void places_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<Use>("use");
        QTest::addColumn<QString>("message");
        auto const row = [](QByteArray const& content, char const* message, Use const& use) {
            QTest::newRow(content) << content << use << QString::fromLatin1(message);
        };
        row("\n{}", "FILE:2: the key \"a\" is missing", [](JsonInput const& in) { in.at("a"_s); });
        row("{\"b\":\n{\"c\": 1}}", "FILE:2: b: the key \"a\" is missing",
            [](JsonInput const& in) { in.at("b"_s).at("a"_s); });
        row("{\"a\": 1,\n\"A\": 2}", "FILE:2: unknown key \"A\", known are a, b", [](JsonInput const& in) {
            in.allowKeys(QStringList({"a"_s, "b"_s}));
        });
        row("{\"a\":\n{\n\"z\": 2}}", "FILE:3: a: unknown key \"z\", known are b",
            [](JsonInput const& in) { in.at("a"_s).allowKeys({"b"_s}); });
        row("{\"a\": [{\"b\":\n1}]}", "FILE:2: a[0].b: is not nice",
            [](JsonInput const& in) { in.at("a"_s).items()[0].at("b"_s).fail("is not nice"_s); });
        Use const firstItem = [](JsonInput const& in) { in.items()[0].toBool(); };
        row("[\n[\n1\n]]", "FILE:2: [0]: must be true or false, not a list", firstItem);
        row("[\n[\n{}]]", "FILE:3: [0][0]: must be true or false, not an object",
            [&](JsonInput const& in) { in.items()[0].items()[0].toBool(); });
        for (auto const& number :
             QByteArrayList{"1\n", "1.5\r\n", "18446744073709551615\n"}) // ends with its line
            row("[\n" + number + "]", "FILE:2: [0]: must be true or false, not a number", firstItem);
        row("[\n\"t\"\n\n]", "FILE:2: [0]: must be true or false, not a text", firstItem);
        row("\n\n7", "FILE:3: must be a text, not a number", [](JsonInput const& in) { in.toText(); });
        row("\xef\xbb\xbf\n1", "FILE:2: must be a text, not a number",
            [](JsonInput const& in) { in.toText(); });
    }

    void places()
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
        row("blank", " ", " "_s);
        row("dots and brackets", "x.y[0]", "x.y[0]"_s);
        row("percent", "100%1%2%3", "100%1%2%3"_s);
        row("umlauts and emoji", "\xc3\xa4\xf0\x9f\x98\x80", "\u00e4"_s + emoji);
        row("tab", "a\\tb", "a\tb"_s);
        row("line breaks", "a\\nb\\r", "a\\nb\\r"_s);
        row("control characters", "a\\u0000\\u001b[31m", "a\\u0000\\u001b[31m"_s);
        row("line and paragraph separators", "a\\u2028b\\u2029c\xe2\x80\xa8", "a\\u2028b\\u2029c\\u2028"_s);
        row("longest", QByteArray(200, 'k'), QString(200, QLatin1Char('k')));
        row("one longer", QByteArray(201, 'k'), QString(200, QLatin1Char('k')) + "..."_s);
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
        QCOMPARE(complaintAbout(content, [](JsonInput const& in) { in.at(in.keys().first()).toBool(); }),
                 "FILE:1: %1: must be true or false, not a number"_s.arg(shown));
    }

    void fileNamesStandAsTheyAre()
    {
        QString const name = "100%1%2%3 \u00e4.json"_s;
        for (auto const& [content, message] :
             {std::pair(QByteArray("{\"a\": 1}"), ":1: a: must be true or false, not a number"_s),
              std::pair(QByteArray("{\n\0", 3), ":2:1: not JSON: NUL byte"_s),
              std::pair(QByteArray("]"), ":1:1: not JSON: syntax error while parsing value - unexpected ']'; "
                                         "expected '[', '{', or a literal"_s),
              std::pair(QByteArray((4 << 20) + 1, ' '), ": larger than 4 MiB"_s)}) {
            QString const file = m_folder.write(name, content);
            QCOMPARE(complaintOf([&] { JsonInput::fromFile(file).at("a"_s).toBool(); }), file + message);
        }
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
