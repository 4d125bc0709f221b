#include "working_command.h"

/// The command "init" of the shipped library.
class TestCmdInit : public QObject
{
    Q_OBJECT

private slots:
    // It asks for the lock whatever its parameters say, and only the last reply is examined.
    void course()
    {
        WorkingCommand init("init"_s, {{"lock"_s, 2}});
        QCOMPARE(init.execute(), "getInfo"_s);
        QCOMPARE(init.reply({{"error"_s, "busy"_s}}), "setLock {lock: 1}"_s);
        QCOMPARE(init.reply({{"lockStatus"_s, 0}}), "setLockScreen"_s);
        QCOMPARE(init.reply({{"doneOk"_s, true}}), "doneOk = true; ended well"_s);
    }

    void lastReply_data()
    {
        addReplyColumns();
        QString const done = "doneOk = true; ended well"_s;
        QString const notDone = "doneOk = false; ended well"_s;
        addReply("not done is no error", {{"doneOk"_s, false}}, notDone);
        addReply("a number is true unless it is 0", {{"doneOk"_s, -3}}, done);
        addReply("a text is what it reads as", {{"doneOk"_s, "False"_s}}, notDone);
        addReply("a list is not true", {{"doneOk"_s, QVariantList{true}}}, notDone);
        QString const invalid = "ERROR: Invalid reply format; failed; refused"_s;
        addReply("a reply without doneOk fails the order", {}, invalid);
        addReply("a key has its case", {{"doneOK"_s, true}}, invalid);
    }

    void lastReply()
    {
        QFETCH(QVariantMap, reply);
        QFETCH(QString, course);
        WorkingCommand init("init"_s);
        init.execute();
        init.reply({});
        init.reply({});
        QCOMPARE(init.reply(reply), course);
    }
};

QTEST_GUILESS_MAIN(TestCmdInit)
#include "tst_cmd_init.moc"
