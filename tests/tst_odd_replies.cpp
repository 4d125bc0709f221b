#include "error_line.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QTest>

/// Replies of every wrong shape, to every handler of every command: the plugin logs what it must and nothing
/// more, and never crashes.
class TestOddReplies : public QObject
{
    Q_OBJECT

private slots:
    void values_data();
    void values();
    void emptyReplies_data();
    void emptyReplies();
    void duplicatesAndLateReplies_data();
    void duplicatesAndLateReplies();
    void repliesWhileReleased_data();
    void repliesWhileReleased();
};

namespace
{

// Every key that any handler looks for.
QVariantMap replyOf(QVariant const& value)
{
    QVariantMap reply;
    for (auto const& key :
         {QStringLiteral("doneOk"), QStringLiteral("lockStatus"), QStringLiteral("fasteningLocked"),
          QStringLiteral("looseningLocked"), QStringLiteral("presetData"), QStringLiteral("values"),
          QStringLiteral("statusData"), QStringLiteral("isRunning")})
        reply.insert(key, value);
    return reply;
}

struct Rule
{
    char const* command;
    /// How many error lines replies with this value bring, and replies without any key.
    int (*linesFor)(QVariant const& value);
    int linesForNothing;
};

int none(QVariant const& /*value*/)
{
    return 0;
}

int unlessMap(QVariant const& value)
{
    return value.userType() == QMetaType::QVariantMap ? 0 : 1;
}

int unlessList(QVariant const& value)
{
    return value.toList().isEmpty() ? 1 : 0;
}

constexpr Rule c_rules[] = {
    {"startTightening", unlessMap, 2},
    {"stopTightening", none, 1},
    {"startListening", unlessMap, 1},
    {"getDirection", unlessList, 1},
    {"init", none, 1},
    {"restore", none, 1},
    {"listenTrigger", unlessMap, 1},
    {"getPresetInfo", unlessMap, 1},
};

// Executes a command and replies once to each instruction that it posts, also to those that come of a reply.
void converse(WorkingCommand& working, QVariantMap const& reply)
{
    constexpr int longest = 20;
    QVERIFY(working.execute());
    for (int i = 0; i < working.order.posted.size(); ++i) {
        QVERIFY(i < longest);
        working.command->setReply(working.order.posted[i].id, reply);
    }
}

void rowPerCommand()
{
    QTest::addColumn<QString>("name");
    for (auto const& rule : c_rules)
        QTest::newRow(rule.command) << QString::fromLatin1(rule.command);
}

} // namespace

void TestOddReplies::values_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<int>("lines");
    auto const kinds = everyKindOfValue();
    for (auto const& rule : c_rules) {
        for (auto const& [kind, value] : kinds)
            QTest::addRow("%s: %s", rule.command, kind.constData())
                << QString::fromLatin1(rule.command) << value << rule.linesFor(value);
    }
}

void TestOddReplies::values()
{
    QFETCH(QString, name);
    QFETCH(QVariant, value);
    QFETCH(int, lines);
    WorkingCommand working(name);
    MessageCapture const messages;
    converse(working, replyOf(value));
    QCOMPARE(messages.of(QtCriticalMsg).size(), lines);
    QCOMPARE(messages.lines.size() - messages.of(QtDebugMsg).size(), lines);
    if (lines == 1)
        QVERIFY(ErrorLine::only(messages).message.startsWith(QStringLiteral("ERROR: ")));
}

void TestOddReplies::emptyReplies_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("lines");
    for (auto const& rule : c_rules)
        QTest::newRow(rule.command) << QString::fromLatin1(rule.command) << rule.linesForNothing;
}

void TestOddReplies::emptyReplies()
{
    QFETCH(QString, name);
    QFETCH(int, lines);
    WorkingCommand working(name);
    MessageCapture const messages;
    converse(working, {});
    auto const errors = messages.of(QtCriticalMsg);
    QCOMPARE(errors.size(), lines);
    for (auto const& error : errors)
        QVERIFY(error.text.endsWith(c_invalidReply));
    QCOMPARE(working.order.results.size(), 0);
}

void TestOddReplies::duplicatesAndLateReplies_data()
{
    rowPerCommand();
}

void TestOddReplies::duplicatesAndLateReplies()
{
    QFETCH(QString, name);
    WorkingCommand working(name);
    converse(working, replyOf(QVariantMap{{QStringLiteral("a"), 1}}));
    bool success = true;
    working.command->finishTheCommand(success);
    // What the trigger command asks for at its end is answered once more.
    for (auto const& posted : working.order.posted)
        working.command->setReply(posted.id, {});

    MessageCapture const messages;
    auto const results = working.order.results.size();
    auto const posted = working.order.posted;
    auto const dropped = working.order.dropped.size();
    for (auto const& one : posted)
        QVERIFY(!working.command->setReply(one.id, replyOf(true)));
    QVERIFY(!working.command->setReply(0, {}));
    QCOMPARE(working.order.dropped.size(), dropped + posted.size() + 1);
    QCOMPARE(working.order.posted.size(), posted.size());
    QCOMPARE(working.order.results.size(), results);
    QCOMPARE(messages.lines.size(), 0);
}

void TestOddReplies::repliesWhileReleased_data()
{
    rowPerCommand();
}

void TestOddReplies::repliesWhileReleased()
{
    QFETCH(QString, name);
    WorkingCommand working(name);
    QVERIFY(working.execute());
    // The host lets go while replies are on their way; the order outlives the command and can still be told.
    working.command.reset();
    MessageCapture const messages;
    for (auto const& posted : working.order.posted) {
        working.order.allowancePassed(posted.id);
        working.order.instructionFailed(posted.id, QStringLiteral("gone"));
    }
    QVERIFY(!working.order.awaitsReplies());
    QCOMPARE(working.order.finishes.size(), 0);
    QCOMPARE(messages.lines.size(), 0);
}

QTEST_GUILESS_MAIN(TestOddReplies)
#include "tst_odd_replies.moc"
