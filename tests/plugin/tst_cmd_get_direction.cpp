#include "working_command.h"

/// The command "getDirection" of the shipped library.
class TestCmdGetDirection : public QObject
{
    Q_OBJECT

private slots:
    // The first reply is not examined, even if it holds a direction.
    void instructions()
    {
        WorkingCommand get("getDirection"_s);
        QCOMPARE(get.execute(), "getInfo"_s);
        QCOMPARE(get.reply({{"values"_s, QVariantList{true}}}), "getRegister {channel: \"direction\"}"_s);
    }

    void lastReply_data()
    {
        addReplyColumns();
        auto const row = [](char const* rule, QVariant const& values, QString const& course) {
            addReply(rule, {{"values"_s, values}}, course);
        };
        QString const forward = "direction = 0; ended well"_s;
        QString const reverse = "direction = 1; ended well"_s;
        row("the direction is a number", QVariantList{true}, reverse);
        row("the first value counts", QVariantList{0, 1}, forward);
        row("nothing but the first value counts", QVariantList{-5, 0}, reverse);
        row("a text is what it reads as", QVariantList{"false"_s}, forward);
        row("a list of texts is a list", QStringList{"1"_s, "0"_s}, reverse);
        row("an invalid first value is a value", QVariantList{QVariant(), 1}, forward);
        QString const invalid = "ERROR: Invalid reply format; failed; refused"_s;
        row("an empty list fails the order", QVariantList(), invalid);
        row("a value that is no list fails the order", 1, invalid);
        addReply("a reply without values fails the order", {{"value"_s, QVariantList{1}}}, invalid);
    }

    void lastReply()
    {
        QFETCH(QVariantMap, reply);
        QFETCH(QString, course);
        WorkingCommand get("getDirection"_s);
        get.execute();
        get.reply({});
        QCOMPARE(get.reply(reply), course);
    }
};

QTEST_GUILESS_MAIN(TestCmdGetDirection)
#include "tst_cmd_get_direction.moc"
