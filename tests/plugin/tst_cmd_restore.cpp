#include "error_line.h"
#include "literals.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QTest>

namespace
{

QString const c_name = "restore"_s;
QString const c_statusData = "statusData"_s;
QString const c_toolInfo = "toolInfo"_s;
QString const c_filePath = "filePath"_s;
QString const c_startPreset = "startPreset"_s;
QString const c_endPreset = "endPreset"_s;
QString const c_loadControllerParams = "loadControllerParams"_s;

QVariantMap progress(int percent)
{
    return {{c_statusData, QVariantMap{{"progress"_s, percent}}}};
}

QVariantMap arguments(QVariant const& file, QVariant const& start, QVariant const& end, QVariant const& load)
{
    return {{c_filePath, file}, {c_startPreset, start}, {c_endPreset, end}, {c_loadControllerParams, load}};
}

} // namespace

/// The command "restore" of the shipped library.
class TestCmdRestore : public QObject
{
    Q_OBJECT

private slots:
    void arguments_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QVariantMap>("expected");
        QString const file = "/backups/left.json"_s;
        QTest::newRow("nothing given")
            << QVariantMap() << ::arguments(QString(QLatin1String("")), 0, 0, false);
        QTest::newRow("as declared") << ::arguments(file, 1, 8, true) << ::arguments(file, 1, 8, true);
        QTest::newRow("numbers as text")
            << ::arguments(file, "1"_s, "8"_s, "true"_s) << ::arguments(file, "1"_s, "8"_s, true);
        QTest::newRow("other numbers") << ::arguments(7, 1U, 8.5, 0) << ::arguments(7, 1U, 8.5, false);
        QTest::newRow("invalid") << ::arguments(QVariant(), QVariant(), QVariant(), QVariant())
                                 << ::arguments(QVariant(), QVariant(), QVariant(), false);
        QTest::newRow("further keys")
            << QVariantMap{{"more"_s, 1}} << ::arguments(QString(QLatin1String("")), 0, 0, false);
    }

    void arguments()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QVariantMap, expected);
        WorkingCommand restore(c_name, parameters);
        QVERIFY(restore.execute());
        QCOMPARE(restore.order.names(), QStringList{"restoreBackup"_s});
        auto const sent = restore.order.posted[0].instruction.arguments;
        QCOMPARE(sent.keys(), expected.keys());
        for (auto const& key : expected.keys())
            QVERIFY2(isSame(sent.value(key), expected.value(key)), qPrintable(key));
    }

    void everyStatusIsPublished()
    {
        WorkingCommand restore(c_name);
        QVERIFY(restore.execute());
        for (int percent = 0; percent <= 100; percent += 50)
            QVERIFY(restore.reply(progress(percent)));
        QCOMPARE(restore.order.results.size(), 3);
        QCOMPARE(restore.order.posted.size(), 1);
        QCOMPARE(restore.order.finishes.size(), 0);
        QVERIFY(restore.order.results[0].second.toMap().contains(c_toolInfo));
        QVERIFY(isSame(restore.order.results[1].second, QVariant(QVariantMap{{"progress"_s, 50}})));
        QVERIFY(isSame(restore.order.results[2].second, QVariant(QVariantMap{{"progress"_s, 100}})));
    }

    void toolInfo_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("nothing given") << QVariantMap() << QStringList{QString(), QString(), QString()};
        QTest::newRow("given") << QVariantMap{{"serialNumber"_s, "SN-7"_s},
                                              {"validityDate"_s, "2027-01-31"_s},
                                              {"name"_s, "left bench"_s}}
                               << QStringList{"SN-7"_s, "2027-01-31"_s, "left bench"_s};
        QTest::newRow("converted to text")
            << QVariantMap{{"serialNumber"_s, 7}, {"validityDate"_s, QVariant()}, {"name"_s, 8}}
            << QStringList{"7"_s, QString(), "8"_s};
    }

    void toolInfo()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QStringList, expected);
        WorkingCommand restore(c_name, parameters);
        QVERIFY(restore.execute());
        QVERIFY(restore.reply(progress(0)));
        QVariantMap const info{
            {"serialNumber"_s, expected[0]}, {"validityDate"_s, expected[1]}, {"toolName"_s, expected[2]}};
        QVERIFY(isSame(restore.result(c_statusData),
                       QVariant(QVariantMap{{"progress"_s, 0}, {c_toolInfo, info}})));
        auto const published = restore.result(c_statusData).toMap().value(c_toolInfo).toMap();
        for (auto const& value : published)
            QCOMPARE(value.userType(), int(QMetaType::QString));
    }

    void toolInfoOncePerObject()
    {
        WorkingCommand restore(c_name);
        for (int execution = 0; execution < 2; ++execution) {
            QVERIFY(restore.execute());
            QVERIFY(restore.reply(progress(0)));
            QVERIFY(restore.reply(progress(100)));
            bool success = true;
            QVERIFY(restore.command->finishTheCommand(success));
        }
        QCOMPARE(restore.order.results.size(), 4);
        for (int i = 0; i < 4; ++i)
            QCOMPARE(restore.order.results[i].second.toMap().contains(c_toolInfo), i == 0);

        // Another object of the same plugin has it of its own.
        auto const second = restore.command->createCommand({}).dynamicCast<DAbstractCommand>();
        RecordingOrder order;
        QVERIFY(order.execute(*second));
        QVERIFY(second->setReply(order.posted[0].id, progress(0)));
        QVERIFY(second->result(c_statusData).toMap().contains(c_toolInfo));
    }

    void toolInfoOfTheDeviceIsReplaced()
    {
        WorkingCommand restore(c_name);
        QVERIFY(restore.execute());
        QVariantMap const fromDevice{{c_statusData, QVariantMap{{c_toolInfo, 1}}}};
        QVERIFY(restore.reply(fromDevice));
        QCOMPARE(restore.result(c_statusData).toMap().value(c_toolInfo).toMap().size(), 3);
        QVERIFY(restore.reply(fromDevice));
        QVERIFY(isSame(restore.result(c_statusData).toMap().value(c_toolInfo), QVariant(1)));
    }

    void statusOfAnyKind_data()
    {
        QTest::addColumn<QVariant>("status");
        for (auto const& [name, value] : everyKindOfValue())
            QTest::newRow(name.constData()) << value;
    }

    void statusOfAnyKind()
    {
        QFETCH(QVariant, status);
        MessageCapture const messages;
        WorkingCommand restore(c_name);
        QVERIFY(restore.execute());
        QVERIFY(restore.reply(progress(0)));
        QVERIFY(restore.reply({{c_statusData, status}}));
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
        QCOMPARE(restore.order.results.size(), 2);
        QCOMPARE(restore.result(c_statusData).userType(), int(QMetaType::QVariantMap));
        QVERIFY(restore.result(c_statusData).toMap() == status.toMap());
    }

    void statusIsMissing_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("error") << QVariantMap{{"error"_s, "no such file"_s}};
        QTest::newRow("other key") << QVariantMap{{"status"_s, QVariantMap()}};
    }

    void statusIsMissing()
    {
        QFETCH(QVariantMap, reply);
        MessageCapture const messages;
        WorkingCommand restore(c_name);
        QVERIFY(restore.execute());
        QVERIFY(!restore.reply(reply));
        QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
        QCOMPARE(ErrorLine::only(messages).line, 90);
        QCOMPARE(ErrorLine::only(messages).file, "d_cmd_restore.cpp"_s);
        QCOMPARE(restore.order.results.size(), 0);
        QVERIFY(!restore.result(c_statusData).isValid());
    }

    void missingStatusKeepsToolInfo()
    {
        MessageCapture const messages;
        WorkingCommand restore(c_name);
        QVERIFY(restore.execute());
        QVERIFY(!restore.reply({}));
        QVERIFY(restore.reply(progress(0)));
        QVERIFY(restore.result(c_statusData).toMap().contains(c_toolInfo));
    }

    void stops()
    {
        WorkingCommand restore(c_name);
        QVERIFY(restore.execute());
        bool success = true;
        QVERIFY(restore.command->finishTheCommand(success));
        QCOMPARE(restore.order.withdrawn.size(), 1);
        QVERIFY(!restore.reply(progress(0)));
        QCOMPARE(restore.order.results.size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestCmdRestore)
#include "tst_cmd_restore.moc"
