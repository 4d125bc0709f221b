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
    // A name may look like one of the two places that are filled in.
    void shippedPage()
    {
        ShippedPlugin plugin;
        QString const path = "/{fe68f24c-ac43-4833-abc7-7d9f33744448}/maintenance_panel.qml"_s;
        auto const document = pageDocument(*plugin.root(), "{OBJECT_ID}{OBJECT_NAME}"_s, objectId);
        QCOMPARE(document.url, QUrl("qrc://"_s + path));
        QByteArray page = contentOf(QLatin1Char(':') + path);
        QCOMPARE(page.count("\"{OBJECT_NAME}\""), 1);
        QCOMPARE(page.count("\"{OBJECT_ID}\""), 1);
        page.replace("\"{OBJECT_ID}\"", "\"\\u007b11111111-2222-4333-8444-555555555555\\u007d\"");
        page.replace("\"{OBJECT_NAME}\"", "\"\\u007bOBJECT_ID\\u007d\\u007bOBJECT_NAME\\u007d\"");
        QCOMPARE(document.text, page);
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
        QString latin1;
        for (ushort c = 0; c < 256; ++c)
            latin1 += QChar(c);
        row("empty", QString());
        row("all of Latin-1", latin1);
        row("backslash at the end", "a\\"_s);
        row("looks escaped", "\\u0041\\n\\\""_s);
        row("line separators", "a\u2028b\u2029c\u0085d"_s);
        row("emoji", "\U0001F600\U0001F468\u200D\U0001F527"_s);
        row("half a character", QString(QChar(0xDE00)) + QLatin1Char('x') + QChar(0xD83D));
        row("last of all characters", QString(QChar(0xFFFF)));
        row("end of the string", "\"; Qt.quit(); //"_s);
        row("end of a comment", "*/ a /* b // c"_s);
        row("template", "${1 + 1}`${1}`"_s);
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

    void nameStaysReadable()
    {
        QString const name = "ZRT-1 (left), 50% & more: ~#'|"_s;
        QCOMPARE(inQmlString(name), name.toLatin1());
    }
};

QTEST_GUILESS_MAIN(TestPageDocument)
#include "tst_page_document.moc"
