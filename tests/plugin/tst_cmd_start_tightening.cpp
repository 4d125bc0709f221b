#include "working_command.h"

/// The command "startTightening" of the shipped library.
class TestCmdStartTightening : public QObject
{
    Q_OBJECT

private slots:
    void instructions_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QString>("course");
        auto const row = [](char const* rule, QVariantMap const& parameters, QString const& program,
                            QString const& lock, QString const& preset) {
            QTest::newRow(rule)
                << parameters
                << "setProgram {program: %1}; setLock {lock: %2}; getPresetData {preset: %3}"_s.arg(
                       program, lock, preset);
        };
        auto const given = [](QVariant const& program, QVariant const& locking) {
            return QVariantMap{{"program"_s, program}, {"locking"_s, locking}};
        };
        row("nothing is given", {}, "uint 0"_s, "uint 2"_s, "\"\""_s);
        row("the preset is the program as it was given", given(7, 0), "uint 7"_s, "uint 0"_s, "7"_s);
        row("texts are read", given("7"_s, "1"_s), "uint 7"_s, "uint 1"_s, "\"7\""_s);
        row("what is no number is 0", given("a"_s, QVariantList{1}), "uint 0"_s, "uint 0"_s, "\"a\""_s);
        row("an invalid value is given", given({}, {}), "uint 0"_s, "uint 0"_s, "nothing"_s);
    }

    void instructions()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QString, course);
        QCOMPARE(WorkingCommand("startTightening"_s, parameters).execute(), course);
    }

    void reply_data()
    {
        QTest::addColumn<QString>("instruction");
        QTest::addColumn<QVariantMap>("reply");
        QTest::addColumn<QString>("course");
        auto const row = [](char const* rule, char const* instruction, QVariantMap const& reply,
                            QString const& course) {
            QTest::newRow(rule) << QString::fromLatin1(instruction) << reply << course;
        };
        QString const invalid = "ERROR: Invalid reply format; refused"_s;
        row("the reply about the program is not examined", "setProgram", {{"error"_s, "no"_s}}, {});
        QVariantMap locks{{"lockStatus"_s, QVariant()}, {"fasteningLocked"_s, 1}, {"looseningLocked"_s, 2}};
        for (auto const& key : locks.keys()) {
            auto lacking = locks;
            lacking.remove(key);
            row(qPrintable("a lock reply without %1 fails"_s.arg(key)), "setLock", lacking, invalid);
        }
        locks.insert("more"_s, 3);
        row("the whole lock reply is published", "setLock", locks,
            "lockingData = {fasteningLocked: 1, lockStatus: nothing, looseningLocked: 2, more: 3}"_s);
        row("the preset alone is published", "getPresetData",
            {{"presetData"_s, QVariantMap{{"a"_s, 1}}}, {"more"_s, 1}}, "presetData = {a: 1}"_s);
        row("a preset that is no map fails", "getPresetData", {{"presetData"_s, 1}},
            "ERROR: Reply data format not managed; refused"_s);
        row("a preset reply without a preset fails", "getPresetData", {{"PresetData"_s, QVariantMap()}},
            invalid);
    }

    void reply()
    {
        QFETCH(QString, instruction);
        QFETCH(QVariantMap, reply);
        QFETCH(QString, course);
        WorkingCommand start("startTightening"_s);
        start.execute();
        QCOMPARE(start.reply(instruction, reply), course);
    }

    void nullPresetIsPublishedAsMap()
    {
        WorkingCommand start("startTightening"_s);
        start.execute();
        start.reply({{"presetData"_s, QVariant(QVariant::Map)}});
        QVERIFY(!start.object().result("presetData"_s).isNull());
    }

    void endsWithAllReplies()
    {
        WorkingCommand start("startTightening"_s);
        start.execute();
        for (auto const& instruction : {"getPresetData"_s, "setProgram"_s, "setLock"_s})
            QCOMPARE(start.reply(instruction, goodReply(instruction)).endsWith("ended well"_s),
                     instruction == "setLock"_s);
    }
};

QTEST_GUILESS_MAIN(TestCmdStartTightening)
#include "tst_cmd_start_tightening.moc"
