#include "working_command.h"

namespace
{

QVariantMap const c_tool{
    {"serialNumber"_s, "SN-7"_s}, {"validityDate"_s, "2027-01-31"_s}, {"name"_s, "left bench"_s}};

QVariantMap status(QVariant const& value)
{
    return {{"statusData"_s, value}};
}

} // namespace

/// The command "restore" of the shipped library.
class TestCmdRestore : public QObject
{
    Q_OBJECT

private slots:
    void instruction_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QString>("arguments");
        auto const row = [](char const* rule, QVariant const& preset, QVariant const& loads,
                            char const* arguments) {
            QTest::newRow(rule) << QVariantMap{{"filePath"_s, "left.json"_s},
                                               {"startPreset"_s, preset},
                                               {"endPreset"_s, 8},
                                               {"loadControllerParams"_s, loads}}
                                << QString::fromLatin1(arguments);
        };
        QTest::newRow("nothing is given")
            << QVariantMap()
            << "{endPreset: 0, filePath: \"\", loadControllerParams: false, startPreset: 0}"_s;
        row("given as declared", 1, true,
            "{endPreset: 8, filePath: \"left.json\", loadControllerParams: true, startPreset: 1}");
        row("only whether to load is converted", "1"_s, "true"_s,
            "{endPreset: 8, filePath: \"left.json\", loadControllerParams: true, startPreset: \"1\"}");
        row("invalid values are given", {}, {},
            "{endPreset: 8, filePath: \"left.json\", loadControllerParams: false, startPreset: nothing}");
    }

    void instruction()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QString, arguments);
        QCOMPARE(WorkingCommand("restore"_s, parameters).execute(), "restoreBackup "_s + arguments);
    }

    void course()
    {
        WorkingCommand restore("restore"_s, c_tool);
        restore.execute();
        // A bad reply is not the first status.
        QCOMPARE(restore.reply({{"error"_s, "no such file"_s}}), "ERROR: Invalid reply format; refused"_s);
        QCOMPARE(restore.reply(status(QVariantMap{{"toolInfo"_s, 1}})),
                 "statusData = {toolInfo: {serialNumber: \"SN-7\", toolName: \"left bench\", "
                 "validityDate: \"2027-01-31\"}}"_s);
        // The tool is told of once; after that the controller has the word.
        QCOMPARE(restore.reply(status(QVariantMap{{"toolInfo"_s, 1}})), "statusData = {toolInfo: 1}"_s);
        QCOMPARE(restore.reply(status(1)), "statusData = {}"_s);
        QCOMPARE(restore.finish(), "withdrew restoreBackup; ended well"_s);
        QCOMPARE(restore.reply(status(1)), "dropped; refused"_s);
    }

    void toolIsToldOncePerObject()
    {
        WorkingCommand restore("restore"_s);
        QString const toolInfo =
            "statusData = {toolInfo: {serialNumber: \"\", toolName: \"\", validityDate: \"\"}}"_s;
        restore.execute();
        QCOMPARE(restore.reply(status(QVariantMap())), toolInfo);
        restore.finish();
        restore.execute();
        QCOMPARE(restore.reply(status(QVariantMap())), "statusData = {}"_s);
        restore.command = restore.command->createCommand({});
        restore.execute();
        QCOMPARE(restore.reply(status(QVariantMap())), toolInfo);
    }

    void whatTellsOfTheToolBecomesText()
    {
        WorkingCommand restore("restore"_s,
                               {{"serialNumber"_s, 7}, {"validityDate"_s, QVariant()}, {"name"_s, true}});
        restore.execute();
        QCOMPARE(restore.reply(status(QVariantMap())),
                 "statusData = {toolInfo: {serialNumber: \"7\", toolName: \"true\", validityDate: \"\"}}"_s);
    }
};

QTEST_GUILESS_MAIN(TestCmdRestore)
#include "tst_cmd_restore.moc"
