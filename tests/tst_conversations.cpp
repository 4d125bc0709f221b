#include "course.h"
#include "shipped_plugin.h"
#include "talk.h"
#include "variants.h"

#include <QTest>

Q_DECLARE_METATYPE(Trouble)

/// Every command of the shipped library against the simulated controller, with everything that may go wrong
/// with each instruction that it sends: whatever it does must be what the model does. Nothing of any command
/// is known here; a course without trouble tells which instructions there are and what is in their replies.
class TestConversations : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void course_data();
    void course();
    void withoutOrder_data();
    void withoutOrder();

private:
    QVector<Trouble> troublesOf(Course::Sent const& instruction) const;

    std::unique_ptr<DAbstractPlugin> m_tool;
};

namespace
{

QVector<Trouble> moreTroubles()
{
    return {{QStringLiteral("gone"), Trouble::Gone},
            {QStringLiteral("gone before"), Trouble::GoneBefore},
            {QStringLiteral("repeated at the end"), Trouble::Repeated},
            {QStringLiteral("released"), Trouble::Released},
            {QStringLiteral("finished"), Trouble::Finished},
            {QStringLiteral("unlinked"), Trouble::Unlinked},
            {QStringLiteral("executed again"), Trouble::ExecutedAgain}};
}

} // namespace

void TestConversations::initTestCase()
{
    m_tool = ShippedPlugin().makeInstance(QUuid::createUuid());
    m_tool->initPluginCommands();
    QString const complaint = ExpectedCommand::complaint(m_tool->commandNames());
    QVERIFY2(complaint.isEmpty(), qPrintable(complaint));
}

QVector<Trouble> TestConversations::troublesOf(Course::Sent const& instruction) const
{
    static auto const kinds = everyKindOfValue();
    QVector<Trouble> changes;
    auto const change = [&changes](QString const& name, auto const& make) {
        changes += {name, Trouble::Changed, make};
    };
    change(QStringLiteral("empty"), [](QVariantMap const& /*reply*/) { return QVariantMap(); });
    auto const paths = pathsOf(instruction.replies);
    for (auto const& path : paths) {
        QString const key = path.join(QLatin1Char('.'));
        change(key + QStringLiteral(" missing"),
               [path](QVariantMap const& reply) { return without(reply, path); });
        for (auto const& kind : kinds)
            change(
                key + QStringLiteral(" is ") + QString::fromLatin1(kind.first),
                [path, value = kind.second](QVariantMap const& reply) { return with(reply, path, value); });
    }
    auto troubles = troublesOnTheWay() + moreTroubles() + changes;
    if (instruction.replies.size() > 1) {
        for (auto trouble : qAsConst(changes)) {
            trouble.name += QStringLiteral(" at first");
            trouble.onlyFirst = true;
            troubles += trouble;
        }
    }
    return troubles;
}

void TestConversations::course_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<Trouble>("trouble");
    auto const commands = m_tool->commandNames();
    for (auto const& command : commands) {
        QTest::newRow(qPrintable(command)) << command << Trouble();
        TalkHost host([](QString const& /*what*/) {}); // the row without trouble tells of it
        auto const sent = Course::run(host, *m_tool, command).sent;
        for (int i = 0; i < sent.size(); ++i) {
            auto const troubles = troublesOf(sent[i]);
            for (auto trouble : troubles) {
                trouble.instruction = i;
                QTest::newRow(
                    qPrintable(QStringLiteral("%1: %2, %3: %4")
                                   .arg(command, QString::number(i + 1), sent[i].name, trouble.name)))
                    << command << trouble;
            }
        }
    }
}

void TestConversations::course()
{
    QFETCH(QString, command);
    QFETCH(Trouble, trouble);
    QStringList complaints;
    TalkHost host([&complaints](QString const& what) { complaints += what; });
    Course const course = Course::run(host, *m_tool, command, trouble);
    QVERIFY2(complaints.isEmpty(), qPrintable(complaints.value(0)));
    QVERIFY(course.sent.size() > trouble.instruction);
    // Whatever happens, the order ends, and once; of one that has no command any more nobody hears.
    bool const isCutOff = trouble.kind == Trouble::Released || trouble.kind == Trouble::Unlinked;
    QVERIFY(isCutOff || course.ends.size() == 1);
}

void TestConversations::withoutOrder_data()
{
    addCommandRows();
}

void TestConversations::withoutOrder()
{
    QFETCH(QString, name);
    QStringList complaints;
    TalkHost host([&complaints](QString const& what) { complaints += what; });
    auto const usual = Course::run(host, *m_tool, name).sent;
    Talk talk(host, *m_tool, name, {});
    talk.takeOrder();
    talk.execute();
    // A command that goes to work all the same numbers its instructions itself, and hears of the replies.
    auto const awaited = talk.awaited();
    for (int i = 0; i < awaited.size(); ++i)
        talk.reply(awaited[i], usual[i].replies.value(0));
    talk.finish(true);
    QVERIFY2(complaints.isEmpty(), qPrintable(complaints.value(0)));
}

QTEST_GUILESS_MAIN(TestConversations)
#include "tst_conversations.moc"
