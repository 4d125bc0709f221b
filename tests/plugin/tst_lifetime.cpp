#include "literals.h"
#include "living_objects.h"
#include "message_capture.h"
#include "scratch_folder.h"
#include "shipped_plugin.h"

#include <QPointer>
#include <QtTest>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

namespace
{

constexpr int c_rounds = 10'000;
constexpr int c_roundsOfALibrary = 10; // so that it is loaded and unloaded a thousand times

/// A reply that is mostly right, and now and then empty or odd.
QVariantMap someReply(std::mt19937& random)
{
    switch (random() % 4) {
    case 0:
        return {};
    case 1:
        return {{"values"_s, QVariantMap{{"eventCountNo"_s, int(random() % 3)}}}, {"presetData"_s, "???"_s}};
    default:
        return {{"doneOk"_s, true},
                {"lockStatus"_s, 1},
                {"fasteningLocked"_s, true},
                {"looseningLocked"_s, true},
                {"presetData"_s, QVariantMap{{"torque"_s, 250}}},
                {"values"_s, QVariantMap{{"eventCountNo"_s, int(random() % 3)}}},
                {"statusData"_s, QVariantMap{{"done"_s, 1}}}};
    }
}

/// An order with the command that works for it, each of which may be gone.
struct Life
{
    std::unique_ptr<RecordingOrder> order = std::make_unique<RecordingOrder>();
    QSharedPointer<ICommand> command;
    QSharedPointer<ICommand> secondHandle;
    QPointer<DAbstractCommand> watched;
};

/// Does one of the things that a host can do with an order.
void live(Life& life, std::mt19937& random)
{
    bool success = random() % 2 == 0;
    int const posted = life.order ? life.order->posted.size() : 0;
    quint64 const id = posted > 0 ? life.order->posted[int(random() % unsigned(posted))].id : random() % 200;
    switch (random() % 10) {
    case 0:
        if (life.order && life.command)
            life.order->execute(*life.command);
        break;
    case 1:
        if (life.command)
            life.command->commandExecute();
        break;
    case 2:
        if (life.command)
            life.command->finishTheCommand(success);
        break;
    case 3:
        if (life.order)
            life.order->allowancePassed(id);
        break;
    case 4:
        if (life.order)
            life.order->instructionFailed(id, "gone"_s);
        break;
    case 5:
        if (life.command)
            life.command->linkWithItsOrder(random() % 2 == 0 ? life.order.get() : nullptr);
        break;
    default:
        if (life.command)
            life.command->setReply(id, someReply(random));
        break;
    }
}

/// Lets go of something that is still held.
void letGo(Life& life, std::mt19937& random)
{
    switch (random() % 3) {
    case 0:
        life.order.reset();
        break;
    case 1:
        life.command.reset();
        break;
    default:
        life.secondHandle.reset();
        break;
    }
}

bool isMapped()
{
    return contentOf("/proc/self/maps"_s).contains("libp_tool_vesk_zrt.so");
}

} // namespace

/// The library, instances, commands and orders come and go in every order that a host may choose, thousands
/// of times.
class TestLifetime : public QObject
{
    Q_OBJECT

private slots:
    // Comes first: what follows loads the library for good.
    void everyOrderOfGoing()
    {
        MessageCapture log;
        std::mt19937 random(20261121);
        ShippedPlugin plugin;
        plugin.loader().setLoadHints({}); // Qt keeps a library by default
        LivingObjects const living;
        std::unique_ptr<DAbstractPlugin> instance;
        QStringList names;
        int prototypes = 0;
        int commands = 0; // of the library when it was first loaded
        for (int round = 0; round < c_rounds; ++round) {
            if (round % c_roundsOfALibrary == 0) {
                QVERIFY(!isMapped());
                instance = plugin.makeInstance(QUuid::createUuid());
                QVERIFY(isMapped());
                instance->initPluginCommands();
                names = instance->commandNames();
                prototypes = instance->children().size();
                if (round == 0)
                    commands = names.size();
                QVERIFY(commands > 0);
                QCOMPARE(names.size(), commands);
                QCOMPARE(prototypes, commands);
            }
            // Several live side by side, made of prototypes and of each other.
            std::vector<Life> lives(1 + random() % 4);
            for (auto& life : lives) {
                QString const name = names[int(random() % unsigned(names.size()))];
                ICommand const* maker = instance->commandPrototype(name);
                if (&life != &lives.front() && lives.front().command && random() % 4 == 0)
                    maker = lives.front().command.data();
                life.command = maker->createCommand({{"program"_s, 3}});
                life.watched = life.command.dynamicCast<DAbstractCommand>().data();
                if (random() % 3 == 0)
                    life.secondHandle = life.command;
            }
            QCOMPARE(instance->children().size(), prototypes + int(lives.size()));
            for (int step = int(random() % 24); step > 0; --step)
                live(lives[random() % lives.size()], random);
            // What is left of a life goes on while others end, the instance and the root object among them.
            bool const isLastOfLibrary = round % c_roundsOfALibrary == c_roundsOfALibrary - 1;
            if (isLastOfLibrary && random() % 2 == 0)
                instance.reset();
            if (random() % 16 == 0)
                delete plugin.root();
            for (int step = int(random() % 24); step > 0; --step) {
                auto& life = lives[random() % lives.size()];
                letGo(life, random);
                live(lives[random() % lives.size()], random);
                QCOMPARE(life.watched.isNull(), !life.command && !life.secondHandle);
            }
            std::shuffle(lives.begin(), lives.end(), random);
            lives.clear();
            // The commands complain of what they were replied, an instance of going first, and nobody of
            // anything else.
            for (auto const& line : qAsConst(log.lines))
                QVERIFY2(line.text.contains("ERROR: "_s) || line.type == QtDebugMsg
                             || (!instance && line.text.startsWith("The plugin instance "_s)),
                         qPrintable(line.text));
            log.lines.clear();
            if (instance) {
                QCOMPARE(instance->children().size(), prototypes);
                QCOMPARE(instance->commandNames(), names);
            }
            if (isLastOfLibrary) {
                names.clear(); // texts of the library go with it
                instance.reset();
                QVERIFY(plugin.loader().unload());
                QVERIFY(!isMapped());
                QCOMPARE(differences({}, living.byClass()), QString());
            }
        }
    }

    void instanceGoesFirst_data() { addCommandRows(); }

    void instanceGoesFirst()
    {
        QFETCH(QString, name);
        WorkingCommand working(name);
        QPointer<DAbstractCommand> const watched = working.command.dynamicCast<DAbstractCommand>().data();
        working.execute();
        QString const instance = working.instance->objectUuid().toString();
        MessageCapture log;
        working.instance.reset();
        auto const critical = log.of(QtCriticalMsg);
        QCOMPARE(critical.size(), 1);
        QCOMPARE(
            critical[0].text,
            "The plugin instance %1 was destroyed before its working commands: %2"_s.arg(instance, name));
        // It works on, and goes once.
        QVERIFY(!watched.isNull());
        QVERIFY(!working.order.posted.isEmpty());
        working.command->setReply(working.order.posted.first().id, {});
        bool success = true;
        working.command->finishTheCommand(success);
        QVERIFY(!working.order.finishes.isEmpty());
        working.command.reset();
        QVERIFY(watched.isNull());
    }
};

QTEST_GUILESS_MAIN(TestLifetime)
#include "tst_lifetime.moc"
