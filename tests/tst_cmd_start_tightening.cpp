#include "error_line.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QTest>

/// The command "startTightening" of the shipped library.
class TestCmdStartTightening : public QObject
{
    Q_OBJECT

private slots:
    void threeInstructionsAtOnce();
    void arguments_data();
    void arguments();
    void programReplyIsNotExamined_data();
    void programReplyIsNotExamined();
    void lockReply_data();
    void lockReply();
    void lockReplyWithoutAKey_data();
    void lockReplyWithoutAKey();
    void presetReply_data();
    void presetReply();
    void nullPresetIsPublishedAsAMap();
    void presetReplyIsMissing();
    void endsWithAllReplies();
    void secondExecution();
};

namespace
{

QString const c_name = QStringLiteral("startTightening");
QString const c_setProgram = QStringLiteral("setProgram");
QString const c_setLock = QStringLiteral("setLock");
QString const c_getPresetData = QStringLiteral("getPresetData");
QString const c_file = QStringLiteral("d_cmd_startTightening.cpp");

QVariantMap lockReply(int status)
{
    return {{QStringLiteral("lockStatus"), status},
            {QStringLiteral("fasteningLocked"), false},
            {QStringLiteral("looseningLocked"), true}};
}

} // namespace

void TestCmdStartTightening::threeInstructionsAtOnce()
{
    WorkingCommand start(c_name);
    QVERIFY(start.execute());
    QCOMPARE(start.order.names(), (QStringList{c_setProgram, c_setLock, c_getPresetData}));
    QCOMPARE(start.order.finishes.size(), 0);
}

void TestCmdStartTightening::arguments_data()
{
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<QVariant>("program");
    QTest::addColumn<QVariant>("lock");
    QTest::addColumn<QVariant>("preset");
    QString const program = QStringLiteral("program");
    QString const locking = QStringLiteral("locking");
    QTest::newRow("nothing given") << QVariantMap() << QVariant(0U) << QVariant(2U) << QVariant(QString());
    QTest::newRow("numbers") << QVariantMap{{program, 7}, {locking, 0}} << QVariant(7U) << QVariant(0U)
                             << QVariant(7);
    QTest::newRow("unsigned") << QVariantMap{{program, 65535U}, {locking, 1U}} << QVariant(65535U)
                              << QVariant(1U) << QVariant(65535U);
    QTest::newRow("text") << QVariantMap{{program, QStringLiteral("7")}, {locking, QStringLiteral("1")}}
                          << QVariant(7U) << QVariant(1U) << QVariant(QStringLiteral("7"));
    QTest::newRow("no numbers") << QVariantMap{{program, QStringLiteral("seven")}, {locking, QVariantList{1}}}
                                << QVariant(0U) << QVariant(0U) << QVariant(QStringLiteral("seven"));
    QTest::newRow("invalid") << QVariantMap{{program, QVariant()}, {locking, QVariant()}} << QVariant(0U)
                             << QVariant(0U) << QVariant();
    QTest::newRow("map") << QVariantMap{{program, QVariantMap{{program, 3}}}} << QVariant(0U) << QVariant(2U)
                         << QVariant(QVariantMap{{program, 3}});
}

void TestCmdStartTightening::arguments()
{
    QFETCH(QVariantMap, parameters);
    QFETCH(QVariant, program);
    QFETCH(QVariant, lock);
    QFETCH(QVariant, preset);
    WorkingCommand start(c_name, parameters);
    QVERIFY(start.execute());
    auto const argument = [&start](int index, char const* key) {
        auto const all = start.order.posted[index].instruction.arguments;
        return all.size() == 1 ? all.value(QString::fromLatin1(key))
                               : QVariant(QStringLiteral("not one argument"));
    };
    QVERIFY(isSame(argument(0, "program"), program));
    QVERIFY(isSame(argument(1, "lock"), lock));
    QVERIFY(isSame(argument(2, "preset"), preset));
}

void TestCmdStartTightening::programReplyIsNotExamined_data()
{
    QTest::addColumn<QVariantMap>("reply");
    QTest::newRow("empty") << QVariantMap();
    QTest::newRow("error") << QVariantMap{{QStringLiteral("error"), QStringLiteral("no such program")}};
    QTest::newRow("not done") << QVariantMap{{QStringLiteral("doneOk"), false}};
}

void TestCmdStartTightening::programReplyIsNotExamined()
{
    QFETCH(QVariantMap, reply);
    MessageCapture const messages;
    WorkingCommand start(c_name);
    QVERIFY(start.execute());
    QVERIFY(start.replyTo(c_setProgram, reply));
    QCOMPARE(start.order.results.size(), 0);
    QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
}

void TestCmdStartTightening::lockReply_data()
{
    QTest::addColumn<QVariantMap>("reply");
    auto const valid = ::lockReply(2);
    QTest::newRow("the three keys") << valid;
    auto more = valid;
    more.insert(QStringLiteral("more"), QVariantList{1, 2});
    QTest::newRow("further keys") << more;
    QVariantMap invalid;
    for (auto const& key : valid.keys())
        invalid.insert(key, QVariant());
    QTest::newRow("values are not read") << invalid;
}

void TestCmdStartTightening::lockReply()
{
    QFETCH(QVariantMap, reply);
    MessageCapture const messages;
    WorkingCommand start(c_name);
    QVERIFY(start.execute());
    QVERIFY(start.replyTo(c_setLock, reply));
    QVERIFY(isSame(start.result(QStringLiteral("lockingData")), QVariant(reply)));
    QCOMPARE(start.order.results.size(), 1);
    QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
}

void TestCmdStartTightening::lockReplyWithoutAKey_data()
{
    QTest::addColumn<QStringList>("missing");
    QTest::newRow("lockStatus") << QStringList{QStringLiteral("lockStatus")};
    QTest::newRow("fasteningLocked") << QStringList{QStringLiteral("fasteningLocked")};
    QTest::newRow("looseningLocked") << QStringList{QStringLiteral("looseningLocked")};
    QTest::newRow("all") << QStringList(::lockReply(0).keys());
}

void TestCmdStartTightening::lockReplyWithoutAKey()
{
    QFETCH(QStringList, missing);
    auto reply = ::lockReply(2);
    for (auto const& key : missing)
        reply.remove(key);
    MessageCapture const messages;
    WorkingCommand start(c_name);
    QVERIFY(start.execute());
    QVERIFY(!start.replyTo(c_setLock, reply));
    QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
    QCOMPARE(ErrorLine::only(messages).file, c_file);
    QCOMPARE(start.order.results.size(), 0);
    QVERIFY(!start.result(QStringLiteral("lockingData")).isValid());
}

void TestCmdStartTightening::presetReply_data()
{
    QTest::addColumn<QVariant>("preset");
    for (auto const& [name, value] : everyKindOfValue())
        QTest::newRow(name.constData()) << value;
}

void TestCmdStartTightening::presetReply()
{
    QFETCH(QVariant, preset);
    MessageCapture const messages;
    WorkingCommand start(c_name);
    QVERIFY(start.execute());
    bool const isMap = preset.userType() == QMetaType::QVariantMap;
    QCOMPARE(start.replyTo(c_getPresetData, {{QStringLiteral("presetData"), preset}}), isMap);
    if (isMap) {
        QVERIFY(isSame(start.result(QStringLiteral("presetData")), preset));
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
        return;
    }
    QCOMPARE(ErrorLine::only(messages).message, c_unmanagedFormat);
    QCOMPARE(ErrorLine::only(messages).file, c_file);
    QCOMPARE(start.order.results.size(), 0);
}

void TestCmdStartTightening::nullPresetIsPublishedAsAMap()
{
    WorkingCommand start(c_name);
    QVERIFY(start.execute());
    QVERIFY(start.replyTo(c_getPresetData, {{QStringLiteral("presetData"), QVariant(QVariant::Map)}}));
    QVERIFY(isSame(start.result(QStringLiteral("presetData")), QVariantMap()));
    QVERIFY(!start.result(QStringLiteral("presetData")).isNull());
}

void TestCmdStartTightening::presetReplyIsMissing()
{
    MessageCapture const messages;
    WorkingCommand start(c_name);
    QVERIFY(start.execute());
    QVERIFY(!start.replyTo(c_getPresetData, {{QStringLiteral("PresetData"), QVariantMap()}}));
    QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
    QCOMPARE(ErrorLine::only(messages).file, c_file);
    QCOMPARE(start.order.results.size(), 0);
}

void TestCmdStartTightening::endsWithAllReplies()
{
    WorkingCommand start(c_name);
    QVERIFY(start.execute());
    QVERIFY(start.replyTo(c_getPresetData,
                          {{QStringLiteral("presetData"), QVariantMap{{QStringLiteral("a"), 1}}}}));
    QVERIFY(start.replyTo(c_setProgram, {}));
    QCOMPARE(start.order.finishes.size(), 0);
    QVERIFY(start.replyTo(c_setLock, ::lockReply(2)));
    QCOMPARE(start.order.finishes.size(), 1);
    QVERIFY(start.order.finishes[0].success);
    QCOMPARE(start.order.posted.size(), 3);
}

void TestCmdStartTightening::secondExecution()
{
    WorkingCommand start(c_name);
    QVERIFY(start.execute());
    QVERIFY(start.execute());
    QCOMPARE(start.order.names(), (QStringList{c_setProgram, c_setLock, c_getPresetData, c_setProgram,
                                               c_setLock, c_getPresetData}));
}

QTEST_GUILESS_MAIN(TestCmdStartTightening)
#include "tst_cmd_start_tightening.moc"
