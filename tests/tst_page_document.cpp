#include "maintenance/page_document.h"

#include "complaint.h"
#include "scratch_folder.h"
#include "scripted_plugin.h"
#include "shipped_plugin.h"

#include <QJSEngine>
#include <QtTest>

namespace
{

QString const objectId = QStringLiteral("{11111111-2222-4333-8444-555555555555}");

} // namespace

/// A plugin's page with a tool filled in, whatever the tool is called.
class TstPageDocument : public QObject
{
    Q_OBJECT

private slots:
    void shippedPage_data();
    void shippedPage();
    void noPage();
    void texts_data();
    void texts();
    void allOfLatin1();
};

void TstPageDocument::shippedPage_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QByteArray>("escaped");
    QTest::newRow("plain") << QStringLiteral("left bench") << QByteArray("left bench");
    QTest::newRow("empty") << QString() << QByteArray();
    QTest::newRow("quote") << QStringLiteral("\"; Qt.quit(); //") << QByteArray("\\u0022; Qt.quit(); //");
    QTest::newRow("line break") << QStringLiteral("a\nb") << QByteArray("a\\u000ab");
    QTest::newRow("the other placeholder")
        << QStringLiteral("{OBJECT_ID}") << QByteArray("\\u007bOBJECT_ID\\u007d");
    QTest::newRow("its own placeholder")
        << QStringLiteral("{OBJECT_NAME}") << QByteArray("\\u007bOBJECT_NAME\\u007d");
}

void TstPageDocument::shippedPage()
{
    QFETCH(QString, tool);
    QFETCH(QByteArray, escaped);
    ShippedPlugin plugin;
    QVERIFY(plugin.root());
    QString const path = QStringLiteral("/{fe68f24c-ac43-4833-abc7-7d9f33744448}/maintenance_panel.qml");
    auto const document = pageDocument(*plugin.root(), tool, objectId);
    QCOMPARE(document.url, QUrl(QStringLiteral("qrc://") + path));

    QByteArray const page = contentOf(QLatin1Char(':') + path);
    QCOMPARE(page.count("\"{OBJECT_NAME}\""), 1);
    QCOMPARE(page.count("\"{OBJECT_ID}\""), 1);
    QByteArray expected = page;
    expected.replace("\"{OBJECT_ID}\"", "\"\\u007b11111111-2222-4333-8444-555555555555\\u007d\"");
    expected.replace("\"{OBJECT_NAME}\"", '"' + escaped + '"');
    QCOMPARE(document.text, expected);
}

void TstPageDocument::noPage()
{
    ScriptedPlugin const plugin({});
    QCOMPARE(complaintOf([&plugin] { pageDocument(plugin, QStringLiteral("tool"), objectId); }),
             QStringLiteral("Scripted: has no maintenance page "
                            "(:/{00000000-0000-0000-0000-000000000000}/maintenance_panel.qml)"));
}

void TstPageDocument::texts_data()
{
    QTest::addColumn<QString>("text");
    auto const row = [](char const* name, QString const& text) { QTest::newRow(name) << text; };
    row("empty", QString());
    row("plain", QStringLiteral("left bench 2"));
    row("quote", QStringLiteral("a\"b"));
    row("single quotes", QStringLiteral("'a' `b`"));
    row("backslash", QStringLiteral("a\\b"));
    row("backslash at the end", QStringLiteral("a\\"));
    row("looks escaped", QStringLiteral("\\u0041\\n\\\""));
    row("line feed", QStringLiteral("a\nb"));
    row("carriage return", QStringLiteral("a\rb"));
    row("line separators", QStringLiteral("a\u2028b\u2029c\u0085d"));
    row("NUL", QString::fromLatin1("a\0b", 3));
    row("tab", QStringLiteral("a\tb"));
    row("emoji", QStringLiteral("\U0001F600\U0001F468\u200D\U0001F527"));
    row("first half of a character", QString(QChar(0xD83D)));
    row("second half of a character", QString(QChar(0xDE00)) + QLatin1Char('x'));
    row("last of all characters", QString(QChar(0xFFFF)));
    row("placeholder", QStringLiteral("{OBJECT_ID}"));
    row("end of the string", QStringLiteral("\"; Qt.quit(); //"));
    row("end of a comment", QStringLiteral("*/ a /* b // c"));
    row("template", QStringLiteral("${1 + 1}`${1}`"));
    row("long", QString(100'000, QLatin1Char('"')));
}

void TstPageDocument::texts()
{
    QFETCH(QString, text);
    static QRegularExpression const plain(QStringLiteral(R"(\A(?:[ !#-\[\]-z|~]|\\u[0-9a-f]{4})*+\z)"));
    QByteArray const escaped = inQmlString(text);
    QVERIFY2(plain.match(QString::fromUtf8(escaped)).hasMatch(), escaped.left(200).constData());
    QJSEngine engine;
    QJSValue const value = engine.evaluate(QString::fromUtf8('"' + escaped + '"'));
    QVERIFY(value.isString());
    QCOMPARE(value.toString(), text);
}

void TstPageDocument::allOfLatin1()
{
    QString all;
    for (ushort c = 0; c < 256; ++c)
        all += QChar(c);
    QJSEngine engine;
    QCOMPARE(engine.evaluate(QString::fromUtf8('"' + inQmlString(all) + '"')).toString(), all);
    // A name stays readable where it can.
    QCOMPARE(inQmlString(QStringLiteral("ZRT-1 (left), 50% & more: ~#'|")),
             QByteArray("ZRT-1 (left), 50% & more: ~#'|"));
}

QTEST_GUILESS_MAIN(TstPageDocument)
#include "tst_page_document.moc"
