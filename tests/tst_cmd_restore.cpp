#include "error_line.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QTest>

/// The command "restore" of the shipped library.
class TestCmdRestore : public QObject
{
    Q_OBJECT

private slots:
    void arguments_data();
    void arguments();
    void everyStatusIsPublished();
    void toolInfo_data();
    void toolInfo();
    void toolInfoOncePerObject();
    void toolInfoOfTheDeviceIsReplaced();
    void statusOfAnyKind_data();
    void statusOfAnyKind();
    void statusIsMissing_data();
    void statusIsMissing();
    void missingStatusKeepsToolInfo();
    void stops();
};

namespace
{

QString const c_name = QStringLiteral("restore");
QString const c_statusData = QStringLiteral("statusData");
QString const c_toolInfo = QStringLiteral("toolInfo");
QString const c_filePath = QStringLiteral("filePath");
QString const c_startPreset = QStringLiteral("startPreset");
QString const c_endPreset = QStringLiteral("endPreset");
QString const c_loadControllerParams = QStringLiteral("loadControllerParams");

QVariantMap progress(int percent)
{
    return {{c_statusData, QVariantMap{{QStringLiteral("progress"), percent}}}};
}

QVariantMap arguments(QVariant const& file, QVariant const& start, QVariant const& end, QVariant const& load)
{
    return {{c_filePath, file}, {c_startPreset, start}, {c_endPreset, end}, {c_loadControllerParams, load}};
}

} // namespace

void TestCmdRestore::arguments_data()
{
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<QVariantMap>("expected");
    QString const file = QStringLiteral("/backups/left.json");
    QTest::newRow("nothing given") << QVariantMap() << ::arguments(QString(QLatin1String("")), 0, 0, false);
    QTest::newRow("as declared") << ::arguments(file, 1, 8, true) << ::arguments(file, 1, 8, true);
    QTest::newRow("numbers as text") << ::arguments(file, QStringLiteral("1"), QStringLiteral("8"),
                                                    QStringLiteral("true"))
                                     << ::arguments(file, QStringLiteral("1"), QStringLiteral("8"), true);
    QTest::newRow("other numbers") << ::arguments(7, 1U, 8.5, 0) << ::arguments(7, 1U, 8.5, false);
    QTest::newRow("invalid") << ::arguments(QVariant(), QVariant(), QVariant(), QVariant())
                             << ::arguments(QVariant(), QVariant(), QVariant(), false);
    QTest::newRow("further keys") << QVariantMap{{QStringLiteral("more"), 1}}
                                  << ::arguments(QString(QLatin1String("")), 0, 0, false);
}

void TestCmdRestore::arguments()
{
    QFETCH(QVariantMap, parameters);
    QFETCH(QVariantMap, expected);
    WorkingCommand restore(c_name, parameters);
    QVERIFY(restore.execute());
    QCOMPARE(restore.order.names(), QStringList{QStringLiteral("restoreBackup")});
    auto const sent = restore.order.posted[0].instruction.arguments;
    QCOMPARE(sent.keys(), expected.keys());
    for (auto const& key : expected.keys())
        QVERIFY2(isSame(sent.value(key), expected.value(key)), qPrintable(key));
}

void TestCmdRestore::everyStatusIsPublished()
{
    WorkingCommand restore(c_name);
    QVERIFY(restore.execute());
    for (int percent = 0; percent <= 100; percent += 50)
        QVERIFY(restore.reply(progress(percent)));
    QCOMPARE(restore.order.results.size(), 3);
    QCOMPARE(restore.order.posted.size(), 1);
    QCOMPARE(restore.order.finishes.size(), 0);
    QVERIFY(restore.order.results[0].second.toMap().contains(c_toolInfo));
    QVERIFY(isSame(restore.order.results[1].second, QVariant(QVariantMap{{QStringLiteral("progress"), 50}})));
    QVERIFY(
        isSame(restore.order.results[2].second, QVariant(QVariantMap{{QStringLiteral("progress"), 100}})));
}

void TestCmdRestore::toolInfo_data()
{
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("nothing given") << QVariantMap() << QStringList{QString(), QString(), QString()};
    QTest::newRow("given") << QVariantMap{{QStringLiteral("serialNumber"), QStringLiteral("SN-7")},
                                          {QStringLiteral("validityDate"), QStringLiteral("2027-01-31")},
                                          {QStringLiteral("name"), QStringLiteral("left bench")}}
                           << QStringList{QStringLiteral("SN-7"), QStringLiteral("2027-01-31"),
                                          QStringLiteral("left bench")};
    QTest::newRow("converted to text") << QVariantMap{{QStringLiteral("serialNumber"), 7},
                                                      {QStringLiteral("validityDate"), QVariant()},
                                                      {QStringLiteral("name"), 8}}
                                       << QStringList{QStringLiteral("7"), QString(), QStringLiteral("8")};
}

void TestCmdRestore::toolInfo()
{
    QFETCH(QVariantMap, parameters);
    QFETCH(QStringList, expected);
    WorkingCommand restore(c_name, parameters);
    QVERIFY(restore.execute());
    QVERIFY(restore.reply(progress(0)));
    QVariantMap const info{{QStringLiteral("serialNumber"), expected[0]},
                           {QStringLiteral("validityDate"), expected[1]},
                           {QStringLiteral("toolName"), expected[2]}};
    QVERIFY(isSame(restore.result(c_statusData),
                   QVariant(QVariantMap{{QStringLiteral("progress"), 0}, {c_toolInfo, info}})));
    auto const published = restore.result(c_statusData).toMap().value(c_toolInfo).toMap();
    for (auto const& value : published)
        QCOMPARE(value.userType(), int(QMetaType::QString));
}

void TestCmdRestore::toolInfoOncePerObject()
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

void TestCmdRestore::toolInfoOfTheDeviceIsReplaced()
{
    WorkingCommand restore(c_name);
    QVERIFY(restore.execute());
    QVariantMap const fromDevice{{c_statusData, QVariantMap{{c_toolInfo, 1}}}};
    QVERIFY(restore.reply(fromDevice));
    QCOMPARE(restore.result(c_statusData).toMap().value(c_toolInfo).toMap().size(), 3);
    QVERIFY(restore.reply(fromDevice));
    QVERIFY(isSame(restore.result(c_statusData).toMap().value(c_toolInfo), QVariant(1)));
}

void TestCmdRestore::statusOfAnyKind_data()
{
    QTest::addColumn<QVariant>("status");
    for (auto const& [name, value] : everyKindOfValue())
        QTest::newRow(name.constData()) << value;
}

void TestCmdRestore::statusOfAnyKind()
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

void TestCmdRestore::statusIsMissing_data()
{
    QTest::addColumn<QVariantMap>("reply");
    QTest::newRow("empty") << QVariantMap();
    QTest::newRow("error") << QVariantMap{{QStringLiteral("error"), QStringLiteral("no such file")}};
    QTest::newRow("other key") << QVariantMap{{QStringLiteral("status"), QVariantMap()}};
}

void TestCmdRestore::statusIsMissing()
{
    QFETCH(QVariantMap, reply);
    MessageCapture const messages;
    WorkingCommand restore(c_name);
    QVERIFY(restore.execute());
    QVERIFY(!restore.reply(reply));
    QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
    QCOMPARE(ErrorLine::only(messages).line, 90);
    QCOMPARE(ErrorLine::only(messages).file, QStringLiteral("d_cmd_restore.cpp"));
    QCOMPARE(restore.order.results.size(), 0);
    QVERIFY(!restore.result(c_statusData).isValid());
}

void TestCmdRestore::missingStatusKeepsToolInfo()
{
    MessageCapture const messages;
    WorkingCommand restore(c_name);
    QVERIFY(restore.execute());
    QVERIFY(!restore.reply({}));
    QVERIFY(restore.reply(progress(0)));
    QVERIFY(restore.result(c_statusData).toMap().contains(c_toolInfo));
}

void TestCmdRestore::stops()
{
    WorkingCommand restore(c_name);
    QVERIFY(restore.execute());
    bool success = true;
    QVERIFY(restore.command->finishTheCommand(success));
    QCOMPARE(restore.order.withdrawn.size(), 1);
    QVERIFY(!restore.reply(progress(0)));
    QCOMPARE(restore.order.results.size(), 0);
}

QTEST_GUILESS_MAIN(TestCmdRestore)
#include "tst_cmd_restore.moc"
