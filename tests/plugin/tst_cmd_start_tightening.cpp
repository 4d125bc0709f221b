#include "error_line.h"
#include "literals.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QTest>

namespace
{

QString const c_name = "startTightening"_s;
QString const c_setProgram = "setProgram"_s;
QString const c_setLock = "setLock"_s;
QString const c_getPresetData = "getPresetData"_s;
QString const c_file = "d_cmd_startTightening.cpp"_s;

QVariantMap lockReply(int status)
{
    return {{"lockStatus"_s, status}, {"fasteningLocked"_s, false}, {"looseningLocked"_s, true}};
}

} // namespace

/// The command "startTightening" of the shipped library.
class TestCmdStartTightening : public QObject
{
    Q_OBJECT

private slots:
    void threeInstructionsAtOnce()
    {
        WorkingCommand start(c_name);
        QVERIFY(start.execute());
        QCOMPARE(start.order.names(), (QStringList{c_setProgram, c_setLock, c_getPresetData}));
        QCOMPARE(start.order.finishes.size(), 0);
    }

    void arguments_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QVariant>("program");
        QTest::addColumn<QVariant>("lock");
        QTest::addColumn<QVariant>("preset");
        QString const program = "program"_s;
        QString const locking = "locking"_s;
        QTest::newRow("nothing given")
            << QVariantMap() << QVariant(0U) << QVariant(2U) << QVariant(QString());
        QTest::newRow("numbers") << QVariantMap{{program, 7}, {locking, 0}} << QVariant(7U) << QVariant(0U)
                                 << QVariant(7);
        QTest::newRow("unsigned") << QVariantMap{{program, 65535U}, {locking, 1U}} << QVariant(65535U)
                                  << QVariant(1U) << QVariant(65535U);
        QTest::newRow("text") << QVariantMap{{program, "7"_s}, {locking, "1"_s}} << QVariant(7U)
                              << QVariant(1U) << QVariant("7"_s);
        QTest::newRow("no numbers") << QVariantMap{{program, "seven"_s}, {locking, QVariantList{1}}}
                                    << QVariant(0U) << QVariant(0U) << QVariant("seven"_s);
        QTest::newRow("invalid") << QVariantMap{{program, QVariant()}, {locking, QVariant()}} << QVariant(0U)
                                 << QVariant(0U) << QVariant();
        QTest::newRow("map") << QVariantMap{{program, QVariantMap{{program, 3}}}} << QVariant(0U)
                             << QVariant(2U) << QVariant(QVariantMap{{program, 3}});
    }

    void arguments()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QVariant, program);
        QFETCH(QVariant, lock);
        QFETCH(QVariant, preset);
        WorkingCommand start(c_name, parameters);
        QVERIFY(start.execute());
        auto const argument = [&start](int index, char const* key) {
            auto const all = start.order.posted[index].instruction.arguments;
            return all.size() == 1 ? all.value(QString::fromLatin1(key)) : QVariant("not one argument"_s);
        };
        QVERIFY(isSame(argument(0, "program"), program));
        QVERIFY(isSame(argument(1, "lock"), lock));
        QVERIFY(isSame(argument(2, "preset"), preset));
    }

    void programReplyIsNotExamined_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("error") << QVariantMap{{"error"_s, "no such program"_s}};
        QTest::newRow("not done") << QVariantMap{{"doneOk"_s, false}};
    }

    void programReplyIsNotExamined()
    {
        QFETCH(QVariantMap, reply);
        MessageCapture const messages;
        WorkingCommand start(c_name);
        QVERIFY(start.execute());
        QVERIFY(start.replyTo(c_setProgram, reply));
        QCOMPARE(start.order.results.size(), 0);
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
    }

    void lockReply_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        auto const valid = ::lockReply(2);
        QTest::newRow("the three keys") << valid;
        auto more = valid;
        more.insert("more"_s, QVariantList{1, 2});
        QTest::newRow("further keys") << more;
        QVariantMap invalid;
        for (auto const& key : valid.keys())
            invalid.insert(key, QVariant());
        QTest::newRow("values are not read") << invalid;
    }

    void lockReply()
    {
        QFETCH(QVariantMap, reply);
        MessageCapture const messages;
        WorkingCommand start(c_name);
        QVERIFY(start.execute());
        QVERIFY(start.replyTo(c_setLock, reply));
        QVERIFY(isSame(start.result("lockingData"_s), QVariant(reply)));
        QCOMPARE(start.order.results.size(), 1);
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
    }

    void lockReplyWithoutAKey_data()
    {
        QTest::addColumn<QStringList>("missing");
        QTest::newRow("lockStatus") << QStringList{"lockStatus"_s};
        QTest::newRow("fasteningLocked") << QStringList{"fasteningLocked"_s};
        QTest::newRow("looseningLocked") << QStringList{"looseningLocked"_s};
        QTest::newRow("all") << QStringList(::lockReply(0).keys());
    }

    void lockReplyWithoutAKey()
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
        QVERIFY(!start.result("lockingData"_s).isValid());
    }

    void presetReply_data()
    {
        QTest::addColumn<QVariant>("preset");
        for (auto const& [name, value] : everyKindOfValue())
            QTest::newRow(name.constData()) << value;
    }

    void presetReply()
    {
        QFETCH(QVariant, preset);
        MessageCapture const messages;
        WorkingCommand start(c_name);
        QVERIFY(start.execute());
        bool const isMap = preset.userType() == QMetaType::QVariantMap;
        QCOMPARE(start.replyTo(c_getPresetData, {{"presetData"_s, preset}}), isMap);
        if (isMap) {
            QVERIFY(isSame(start.result("presetData"_s), preset));
            QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
            return;
        }
        QCOMPARE(ErrorLine::only(messages).message, c_unmanagedFormat);
        QCOMPARE(ErrorLine::only(messages).file, c_file);
        QCOMPARE(start.order.results.size(), 0);
    }

    void nullPresetIsPublishedAsAMap()
    {
        WorkingCommand start(c_name);
        QVERIFY(start.execute());
        QVERIFY(start.replyTo(c_getPresetData, {{"presetData"_s, QVariant(QVariant::Map)}}));
        QVERIFY(isSame(start.result("presetData"_s), QVariantMap()));
        QVERIFY(!start.result("presetData"_s).isNull());
    }

    void presetReplyIsMissing()
    {
        MessageCapture const messages;
        WorkingCommand start(c_name);
        QVERIFY(start.execute());
        QVERIFY(!start.replyTo(c_getPresetData, {{"PresetData"_s, QVariantMap()}}));
        QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
        QCOMPARE(ErrorLine::only(messages).file, c_file);
        QCOMPARE(start.order.results.size(), 0);
    }

    void endsWithAllReplies()
    {
        WorkingCommand start(c_name);
        QVERIFY(start.execute());
        QVERIFY(start.replyTo(c_getPresetData, {{"presetData"_s, QVariantMap{{"a"_s, 1}}}}));
        QVERIFY(start.replyTo(c_setProgram, {}));
        QCOMPARE(start.order.finishes.size(), 0);
        QVERIFY(start.replyTo(c_setLock, ::lockReply(2)));
        QCOMPARE(start.order.finishes.size(), 1);
        QVERIFY(start.order.finishes[0].success);
        QCOMPARE(start.order.posted.size(), 3);
    }

    void secondExecution()
    {
        WorkingCommand start(c_name);
        QVERIFY(start.execute());
        QVERIFY(start.execute());
        QCOMPARE(start.order.names(), (QStringList{c_setProgram, c_setLock, c_getPresetData, c_setProgram,
                                                   c_setLock, c_getPresetData}));
    }
};

QTEST_GUILESS_MAIN(TestCmdStartTightening)
#include "tst_cmd_start_tightening.moc"
