#include "course.h"
#include "literals.h"
#include "shipped_plugin.h"
#include "talk.h"
#include "variants.h"

#include <QTest>

Q_DECLARE_METATYPE(Trouble)

namespace
{

QVector<Trouble> moreTroubles()
{
    return {{"gone"_s, Trouble::Gone},
            {"gone before"_s, Trouble::GoneBefore},
            {"repeated at the end"_s, Trouble::Repeated},
            {"released"_s, Trouble::Released},
            {"finished"_s, Trouble::Finished},
            {"unlinked"_s, Trouble::Unlinked},
            {"executed again"_s, Trouble::ExecutedAgain}};
}

} // namespace

/// Every command of the shipped library against the simulated controller, with everything that may go wrong
/// with each instruction that it sends: whatever it does must be what the model does. Nothing of any command
/// is known here; a course without trouble tells which instructions there are and what is in their replies.
class TestConversations : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_tool = ShippedPlugin().makeInstanceWithCommands();
        QString const complaint = ExpectedCommand::complaint(m_tool->commandNames());
        QVERIFY2(complaint.isEmpty(), qPrintable(complaint));
    }

    void course_data()
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
                    QTest::newRow(qPrintable(
                        "%1: %2, %3: %4"_s.arg(command, QString::number(i + 1), sent[i].name, trouble.name)))
                        << command << trouble;
                }
            }
        }
    }

    void course()
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

    void withoutOrder_data() { addCommandRows(); }

    void withoutOrder()
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

private:
    QVector<Trouble> troublesOf(Course::Sent const& instruction) const
    {
        static auto const kinds = everyKindOfValue();
        QVector<Trouble> changes;
        auto const change = [&changes](QString const& name, auto const& make) {
            changes += {name, Trouble::Changed, make};
        };
        change("empty"_s, [](QVariantMap const& /*reply*/) { return QVariantMap(); });
        auto const paths = pathsOf(instruction.replies);
        for (auto const& path : paths) {
            QString const key = path.join(QLatin1Char('.'));
            change(key + " missing"_s, [path](QVariantMap const& reply) { return without(reply, path); });
            for (auto const& kind : kinds)
                change(key + " is "_s + QString::fromLatin1(kind.first),
                       [path, value = kind.second](QVariantMap const& reply) {
                           return with(reply, path, value);
                       });
        }
        auto troubles = troublesOnTheWay() + moreTroubles() + changes;
        if (instruction.replies.size() > 1) {
            for (auto trouble : qAsConst(changes)) {
                trouble.name += " at first"_s;
                trouble.onlyFirst = true;
                troubles += trouble;
            }
        }
        return troubles;
    }

    std::unique_ptr<DAbstractPlugin> m_tool;
};

QTEST_GUILESS_MAIN(TestConversations)
#include "tst_conversations.moc"
