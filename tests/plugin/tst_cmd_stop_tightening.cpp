#include "working_command.h"

/// The command "stopTightening" of the shipped library.
class TestCmdStopTightening : public QObject
{
    Q_OBJECT

private slots:
    void instruction()
    {
        WorkingCommand stop("stopTightening"_s, {{"lock"_s, 0}, {"locking"_s, 2}});
        QCOMPARE(stop.execute(), "setLock {lock: 1}"_s);
    }

    void reply_data()
    {
        addReplyColumns();
        addReply("the status alone is published", {{"lockStatus"_s, 3}, {"more"_s, 1}},
                 "lockStatus = 3; ended well"_s);
        addReply("the status is published as it is", {{"lockStatus"_s, QVariantList{1, "a"_s}}},
                 "lockStatus = [1, \"a\"]; ended well"_s);
        addReply("a reply without a status fails the order", {{"fasteningLocked"_s, true}},
                 "ERROR: Invalid reply format; failed; refused"_s);
    }

    void reply()
    {
        QFETCH(QVariantMap, reply);
        QFETCH(QString, course);
        WorkingCommand stop("stopTightening"_s);
        stop.execute();
        QCOMPARE(stop.reply(reply), course);
    }
};

QTEST_GUILESS_MAIN(TestCmdStopTightening)
#include "tst_cmd_stop_tightening.moc"
