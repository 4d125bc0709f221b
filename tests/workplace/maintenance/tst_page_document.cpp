#include "literals.h"

#include "maintenance/page_document.h"

#include "complaint.h"
#include "scratch_folder.h"
#include "scripted_plugin.h"
#include "shipped_plugin.h"

#include <QJSEngine>
#include <QtTest>

namespace
{

QString const objectId = "{11111111-2222-4333-8444-555555555555}"_s;

} // namespace

/// A plugin's page with a tool filled in, whatever the tool is called.
class TestPageDocument : public QObject
{
    Q_OBJECT

private slots:
    void shippedPage_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QByteArray>("escaped");
        QTest::newRow("plain") << "left bench"_s << QByteArray("left bench");
        QTest::newRow("empty") << QString() << QByteArray();
        QTest::newRow("quote") << "\"; Qt.quit(); //"_s << QByteArray("\\u0022; Qt.quit(); //");
        QTest::newRow("line break") << "a\nb"_s << QByteArray("a\\u000ab");
        QTest::newRow("the other placeholder") << "{OBJECT_ID}"_s << QByteArray("\\u007bOBJECT_ID\\u007d");
        QTest::newRow("its own placeholder") << "{OBJECT_NAME}"_s << QByteArray("\\u007bOBJECT_NAME\\u007d");
    }

    void shippedPage()
    {
        QFETCH(QString, tool);
        QFETCH(QByteArray, escaped);
        ShippedPlugin plugin;
        QVERIFY(plugin.root());
        QString const path = "/{fe68f24c-ac43-4833-abc7-7d9f33744448}/maintenance_panel.qml"_s;
        auto const document = pageDocument(*plugin.root(), tool, objectId);
        QCOMPARE(document.url, QUrl("qrc://"_s + path));

        QByteArray const page = contentOf(QLatin1Char(':') + path);
        QCOMPARE(page.count("\"{OBJECT_NAME}\""), 1);
        QCOMPARE(page.count("\"{OBJECT_ID}\""), 1);
        QByteArray expected = page;
        expected.replace("\"{OBJECT_ID}\"", "\"\\u007b11111111-2222-4333-8444-555555555555\\u007d\"");
        expected.replace("\"{OBJECT_NAME}\"", '"' + escaped + '"');
        QCOMPARE(document.text, expected);
    }

    void noPage()
    {
        ScriptedPlugin const plugin({});
        QCOMPARE(complaintOf([&plugin] { pageDocument(plugin, "tool"_s, objectId); }),
                 "Scripted: has no maintenance page "
                 "(:/{00000000-0000-0000-0000-000000000000}/maintenance_panel.qml)"_s);
    }

    void texts_data()
    {
        QTest::addColumn<QString>("text");
        auto const row = [](char const* name, QString const& text) { QTest::newRow(name) << text; };
        row("empty", QString());
        row("plain", "left bench 2"_s);
        row("quote", "a\"b"_s);
        row("single quotes", "'a' `b`"_s);
        row("backslash", "a\\b"_s);
        row("backslash at the end", "a\\"_s);
        row("looks escaped", "\\u0041\\n\\\""_s);
        row("line feed", "a\nb"_s);
        row("carriage return", "a\rb"_s);
        row("line separators", "a\u2028b\u2029c\u0085d"_s);
        row("NUL", QString::fromLatin1("a\0b", 3));
        row("tab", "a\tb"_s);
        row("emoji", "\U0001F600\U0001F468\u200D\U0001F527"_s);
        row("first half of a character", QString(QChar(0xD83D)));
        row("second half of a character", QString(QChar(0xDE00)) + QLatin1Char('x'));
        row("last of all characters", QString(QChar(0xFFFF)));
        row("placeholder", "{OBJECT_ID}"_s);
        row("end of the string", "\"; Qt.quit(); //"_s);
        row("end of a comment", "*/ a /* b // c"_s);
        row("template", "${1 + 1}`${1}`"_s);
        row("long", QString(100'000, QLatin1Char('"')));
    }

    void texts()
    {
        QFETCH(QString, text);
        static QRegularExpression const plain(R"(\A(?:[ !#-\[\]-z|~]|\\u[0-9a-f]{4})*+\z)"_s);
        QByteArray const escaped = inQmlString(text);
        QVERIFY2(plain.match(QString::fromUtf8(escaped)).hasMatch(), escaped.left(200).constData());
        QJSEngine engine;
        QJSValue const value = engine.evaluate(QString::fromUtf8('"' + escaped + '"'));
        QVERIFY(value.isString());
        QCOMPARE(value.toString(), text);
    }

    void allOfLatin1()
    {
        QString all;
        for (ushort c = 0; c < 256; ++c)
            all += QChar(c);
        QJSEngine engine;
        QCOMPARE(engine.evaluate(QString::fromUtf8('"' + inQmlString(all) + '"')).toString(), all);
        // A name stays readable where it can.
        QCOMPARE(inQmlString("ZRT-1 (left), 50% & more: ~#'|"_s),
                 QByteArray("ZRT-1 (left), 50% & more: ~#'|"));
    }
};

QTEST_GUILESS_MAIN(TestPageDocument)
#include "tst_page_document.moc"
