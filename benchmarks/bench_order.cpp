// One order of each one-shot command, from the clone of its prototype to its end.

#include "loaded_tool.h"
#include "measure.h"

#include <QCoreApplication>
#include <QVector>

#include <functional>

namespace
{

/// An order of a one-shot command, and what has to be made for it by whoever carries it out.
struct OrderCase
{
    struct Instruction
    {
        QString name;
        QVector<QPair<QString, QVariant>> arguments;
        QVariantMap reply;
    };
    struct Result
    {
        QString key;
        std::function<QVariant()> make;
    };

    char const* command;
    QVariantMap parameters;
    QVector<Instruction> instructions; // in the order in which they are posted and answered
    QVector<Result> results;           // as they are published
};

/// A preset with as many values as the simulated controller gives.
QVariantMap preset()
{
    return {{QStringLiteral("tcamActm"), 0},     {QStringLiteral("torque"), 250},
            {QStringLiteral("targetAngle"), 90}, {QStringLiteral("minAngle"), 10},
            {QStringLiteral("maxAngle"), 720},   {QStringLiteral("speed"), 400},
            {QStringLiteral("freeSpeed"), 800},  {QStringLiteral("seatingPoint"), 50}};
}

/// What is shown of a preset, in the words of the operator's language.
QVariant presetInfo()
{
    QVariantMap info;
    info.insert(qtTrId("GetPresetInfo_Control_Mode"), qtTrId("GetPresetInfo_Torque"));
    info.insert(qtTrId("GetPresetInfo_Target_torque"), 2.5);
    info.insert(qtTrId("GetPresetInfo_Target_Angle"), 90);
    return info;
}

QVector<OrderCase> orderCases()
{
    QVariantMap const confirmed{{QStringLiteral("doneOk"), true}};
    QVariantMap const info{{QStringLiteral("model"), QStringLiteral("ZRT")},
                           {QStringLiteral("serialNumber"), QStringLiteral("ZRT-2026-0042")}};
    QVariantMap const locked{{QStringLiteral("lockStatus"), 1},
                             {QStringLiteral("fasteningLocked"), true},
                             {QStringLiteral("looseningLocked"), true}};
    QVariantMap const presetReply{{QStringLiteral("presetData"), preset()}};
    return {
        {"init",
         {},
         {{QStringLiteral("getInfo"), {}, info},
          {QStringLiteral("setLock"), {{QStringLiteral("lock"), 1}}, locked},
          {QStringLiteral("setLockScreen"), {}, confirmed}},
         {{QStringLiteral("doneOk"), [] { return QVariant(true); }}}},
        {"startTightening",
         {{QStringLiteral("program"), 3}, {QStringLiteral("locking"), 2}},
         {{QStringLiteral("setProgram"), {{QStringLiteral("program"), 3U}}, confirmed},
          {QStringLiteral("setLock"), {{QStringLiteral("lock"), 2U}}, locked},
          {QStringLiteral("getPresetData"), {{QStringLiteral("preset"), 3}}, presetReply}},
         {{QStringLiteral("lockingData"), [locked] { return QVariant(locked); }},
          {QStringLiteral("presetData"), [map = preset()] { return QVariant(map); }}}},
        {"stopTightening",
         {},
         {{QStringLiteral("setLock"), {{QStringLiteral("lock"), 1}}, locked}},
         {{QStringLiteral("lockStatus"), [] { return QVariant(1); }}}},
        {"getDirection",
         {},
         {{QStringLiteral("getInfo"), {}, info},
          {QStringLiteral("getRegister"),
           {{QStringLiteral("channel"), QStringLiteral("direction")}},
           {{QStringLiteral("values"), QVariantList{1}}}}},
         {{QStringLiteral("direction"), [] { return QVariant(1); }}}},
        {"getPresetInfo",
         {{QStringLiteral("prog"), 3}},
         {{QStringLiteral("getPresetData"), {{QStringLiteral("preset"), 3}}, presetReply}},
         {{QStringLiteral("presetData"), presetInfo}}},
    };
}

/// An order of the shipped library's command, carried out by the least of hosts.
class PluginOrder
{
public:
    explicit PluginOrder(OrderCase order)
        : m_case(std::move(order))
        , m_tool(makeTool())
        , m_prototype(m_tool->commandPrototype(QString::fromLatin1(m_case.command)))
        , m_order(std::make_unique<QuietOrder>())
    {}
    void operator()() const
    {
        quint64 instruction = m_order->lastInstruction();
        QSharedPointer<ICommand> const command = m_prototype->createCommand(m_case.parameters);
        m_order->execute(*command);
        for (auto const& posted : m_case.instructions) {
            if (!command->setReply(++instruction, posted.reply))
                qFatal("%s: the reply to %s was not taken", m_case.command, qPrintable(posted.name));
        }
        if (instruction != m_order->lastInstruction())
            qFatal("%s: an instruction was not answered", m_case.command);
    }

private:
    OrderCase const m_case;
    std::unique_ptr<DAbstractPlugin> m_tool;
    ICommand const* m_prototype;
    std::unique_ptr<QuietOrder> m_order;
};

/// One QObject with the same maps: the order's parameters, what is declared, the results, the instructions
/// that wait for a reply; and the arguments of each instruction.
class PlainOrder
{
public:
    explicit PlainOrder(OrderCase order)
        : m_case(std::move(order))
        , m_declared(makeTool()->commandPrototype(QString::fromLatin1(m_case.command))->commandArguments())
    {}
    void operator()()
    {
        QSharedPointer<Object> const object(new Object(&m_parent));
        object->parameters = m_case.parameters;
        for (auto const& parameter : m_declared.parameters)
            object->declared.parameters.append(parameter);
        for (auto const& result : m_declared.results) {
            object->declared.results.append(result);
            object->results.insert(result.key, result.defaultValue);
        }
        quint64 instruction = 0;
        for (auto const& posted : m_case.instructions) {
            QVariantMap arguments;
            for (auto const& argument : posted.arguments)
                arguments.insert(argument.first, argument.second);
            benchmark::DoNotOptimize(&arguments);
            object->waiting.insert(++instruction, posted.name);
        }
        for (; instruction > 0; --instruction)
            object->waiting.remove(instruction);
        for (auto const& result : m_case.results)
            object->results.insert(result.key, result.make());
    }

private:
    struct Object final : public QObject
    {
        using QObject::QObject;
        QVariantMap parameters;
        DCommandArguments declared;
        QVariantMap results;
        QMap<quint64, QString> waiting;
    };

    OrderCase const m_case;
    DCommandArguments const m_declared;
    QObject m_parent;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    auto const orders = orderCases();
    for (auto const& order : orders) {
        std::string const name = std::string("order/") + order.command;
        measure::add(name + "/plugin", [order] { return PluginOrder(order); });
        measure::add(name + "/baseline", [order] { return PlainOrder(order); });
    }
    return measure::run(argc, argv);
}
