#include "living_objects.h"
#include "working_command.h"

#include <QPointer>

#include <algorithm>
#include <random>
#include <vector>

namespace
{

constexpr int c_rounds = 10'000;
constexpr int c_roundsOfALibrary = 10; // so that it is loaded and unloaded a thousand times

/// An order with the command that works for it, each of which may be gone.
struct Work
{
    std::unique_ptr<RecordingOrder> order = std::make_unique<RecordingOrder>();
    QSharedPointer<ICommand> command;
    QSharedPointer<ICommand> secondHandle;
    QPointer<DAbstractCommand> watched;
};

/// A host that does whatever it may, in any order.
class RandomHost
{
public:
    /// One of @p count.
    int choose(int count) { return int(m_random() % unsigned(count)); }
    template <class List> auto& oneOf(List& list)
    {
        return list[static_cast<typename List::size_type>(choose(int(list.size())))];
    }

    void shuffle(std::vector<Work>& works) { std::shuffle(works.begin(), works.end(), m_random); }

    /// Does one of the things that a host can do with an order and its command.
    void use(Work& work)
    {
        auto* const order = work.order.get();
        auto* const command = work.command.data();
        quint64 const id = idFor(work);
        bool success = choose(2) == 0;
        int const action = choose(10);
        if (action == 0 && order && command)
            order->execute(*command);
        else if (action == 1 && order)
            order->allowancePassed(id);
        else if (action == 2 && order)
            order->instructionFailed(id, "gone"_s);
        else if (action == 3 && command)
            command->commandExecute();
        else if (action == 4 && command)
            command->finishTheCommand(success);
        else if (action == 5 && command)
            command->linkWithItsOrder(success ? order : nullptr);
        else if (command)
            command->setReply(id, someReply());
    }

    void letGoOfSomething(Work& work)
    {
        int const which = choose(3);
        if (which == 0)
            work.order.reset();
        else if (which == 1)
            work.command.reset();
        else
            work.secondHandle.reset();
    }

private:
    quint64 idFor(Work const& work)
    {
        if (!work.order || work.order->posted.isEmpty())
            return quint64(choose(200));
        return oneOf(work.order->posted).id;
    }

    /// Mostly right, and now and then empty or odd.
    QVariantMap someReply()
    {
        QVariantMap const good = goodReply({});
        QVariantMap event = good;
        event["values"_s] = goodReply("listenEventsData"_s, choose(3))["values"_s];
        QVector<QVariantMap> replies{{}, {{"values"_s, 1}, {"presetData"_s, "???"_s}}, good, event};
        return oneOf(replies);
    }

    std::mt19937 m_random{20261121};
};

} // namespace

/// The library, instances, commands and orders come and go in every order that a host may choose, thousands
/// of times.
class TestLifetime : public QObject
{
    Q_OBJECT

private slots:
    void everyOrderOfGoing()
    {
        MessageCapture log;
        RandomHost host;
        ShippedPlugin plugin;
        plugin.loader().setLoadHints({}); // Qt keeps a library by default
        LivingObjects const living;
        std::unique_ptr<DAbstractPlugin> instance;
        int prototypes = 0;
        for (int round = 0; round < c_rounds; ++round) {
            if (round % c_roundsOfALibrary == 0) {
                QVERIFY(!ShippedPlugin::isMapped());
                instance = plugin.makeInstanceWithCommands();
                QVERIFY(ShippedPlugin::isMapped());
                if (round == 0)
                    prototypes = instance->commandNames().size();
                QVERIFY(prototypes > 0);
                QCOMPARE(instance->children().size(), prototypes);
            }
            // Several work side by side, made of prototypes and of each other.
            std::vector<Work> works(std::size_t(1 + host.choose(4)));
            for (auto& work : works) {
                auto names = instance->commandNames();
                ICommand const* maker = instance->commandPrototype(host.oneOf(names));
                if (works.front().command && host.choose(4) == 0)
                    maker = works.front().command.data();
                work.command = maker->createCommand({{"program"_s, 3}});
                work.watched = dynamic_cast<DAbstractCommand*>(work.command.data());
                if (host.choose(3) == 0)
                    work.secondHandle = work.command;
            }
            QCOMPARE(instance->children().size(), prototypes + int(works.size()));
            for (int step = host.choose(24); step > 0; --step)
                host.use(host.oneOf(works));
            // What is left goes on while others end, the instance and the root object among them.
            bool const isLastOfLibrary = round % c_roundsOfALibrary == c_roundsOfALibrary - 1;
            if (isLastOfLibrary && host.choose(2) == 0)
                instance.reset();
            if (host.choose(16) == 0)
                delete plugin.root();
            for (int step = host.choose(24); step > 0; --step) {
                auto& work = host.oneOf(works);
                host.letGoOfSomething(work);
                QCOMPARE(work.watched.isNull(), !work.command && !work.secondHandle);
                host.use(host.oneOf(works));
            }
            host.shuffle(works);
            works.clear();
            // The commands complain of replies, an instance of going first, and nobody of anything else.
            for (auto const& line : qAsConst(log.lines))
                QVERIFY2(line.text.contains("ERROR: "_s) || line.type == QtDebugMsg
                             || (!instance && line.text.startsWith("The plugin instance "_s)),
                         qPrintable(line.text));
            log.lines.clear();
            if (instance)
                QCOMPARE(instance->children().size(), prototypes);
            if (isLastOfLibrary) {
                instance.reset();
                QVERIFY(plugin.loader().unload());
                QVERIFY(!ShippedPlugin::isMapped());
                QCOMPARE(differences({}, living.byClass()), QString());
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestLifetime)
#include "tst_lifetime.moc"
