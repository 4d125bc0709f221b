#include "error_line.h"
#include "literals.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QTest>

namespace
{

QString const c_name = "getDirection"_s;
QString const c_direction = "direction"_s;
QString const c_values = "values"_s;

} // namespace

/// The command "getDirection" of the shipped library.
class TestCmdGetDirection : public QObject
{
    Q_OBJECT

private slots:
    void chain_data()
    {
        QTest::addColumn<QVariantMap>("info");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("error") << QVariantMap{{"error"_s, "busy"_s}};
        QTest::newRow("values of its own") << QVariantMap{{c_values, QVariantList{true}}};
    }

    void chain()
    {
        QFETCH(QVariantMap, info);
        WorkingCommand get(c_name);
        QVERIFY(get.execute());
        QCOMPARE(get.order.names(), QStringList{"getInfo"_s});
        QCOMPARE(get.order.posted[0].instruction.arguments.size(), 0);

        QVERIFY(get.reply(info));
        QCOMPARE(get.order.names(), (QStringList{"getInfo"_s, "getRegister"_s}));
        auto const arguments = get.order.posted[1].instruction.arguments;
        QCOMPARE(arguments.size(), 1);
        QVERIFY(isSame(arguments.value("channel"_s), QVariant(c_direction)));
        QCOMPARE(get.order.results.size(), 0);
        QCOMPARE(get.order.finishes.size(), 0);

        QVERIFY(get.reply({{c_values, QVariantList{true}}}));
        QCOMPARE(get.order.posted.size(), 2);
        QCOMPARE(get.order.finishes.size(), 1);
        QVERIFY(get.order.finishes[0].success);
    }

    void direction_data()
    {
        QTest::addColumn<QVariant>("values");
        QTest::addColumn<int>("expected");
        QTest::newRow("true") << QVariant(QVariantList{true}) << 1;
        QTest::newRow("false") << QVariant(QVariantList{false}) << 0;
        QTest::newRow("the first counts") << QVariant(QVariantList{0, 1}) << 0;
        QTest::newRow("the first alone") << QVariant(QVariantList{1, 0}) << 1;
        QTest::newRow("text 1") << QVariant(QVariantList{"1"_s}) << 1;
        QTest::newRow("text 0") << QVariant(QVariantList{"0"_s}) << 0;
        QTest::newRow("text false") << QVariant(QVariantList{"false"_s}) << 0;
        QTest::newRow("text list") << QVariant(QStringList{"1"_s, "0"_s}) << 1;
        QTest::newRow("number") << QVariant(QVariantList{-5}) << 1;
        QTest::newRow("invalid first value") << QVariant(QVariantList{QVariant(), 1}) << 0;
        QTest::newRow("list first") << QVariant(QVariantList{QVariant(QVariantList{1}), 1}) << 0;
    }

    void direction()
    {
        QFETCH(QVariant, values);
        QFETCH(int, expected);
        MessageCapture const messages;
        WorkingCommand get(c_name);
        QVERIFY(get.execute());
        QVERIFY(get.reply({}));
        QVERIFY(get.reply({{c_values, values}}));
        QCOMPARE(get.order.results.size(), 1);
        QVERIFY(isSame(get.result(c_direction), QVariant(expected)));
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
    }

    void noFirstValue_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("wrong key") << QVariantMap{{"value"_s, QVariantList{1}}};
        for (auto const& [name, value] : everyKindOfValue()) {
            if (value.toList().isEmpty())
                QTest::newRow("values is " + name) << QVariantMap{{c_values, value}};
        }
    }

    void noFirstValue()
    {
        QFETCH(QVariantMap, reply);
        MessageCapture const messages;
        WorkingCommand get(c_name);
        QVERIFY(get.execute());
        QVERIFY(get.reply({}));
        QVERIFY(!get.reply(reply));
        QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
        QCOMPARE(ErrorLine::only(messages).file, "d_cmd_getDirection.cpp"_s);
        QCOMPARE(get.order.results.size(), 0);
        QVERIFY(!get.result(c_direction).isValid());
        QVERIFY(!get.order.finishes[0].success);
    }
};

QTEST_GUILESS_MAIN(TestCmdGetDirection)
#include "tst_cmd_get_direction.moc"
