#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_tightening_tool.h>

#include <QtTest>

#include <cstring>
#include <type_traits>

namespace
{

/// The position in the virtual table through which a call of this function goes. A pointer to a virtual
/// member function holds the offset of its entry (Itanium C++ ABI, which GCC and Clang follow on Linux), with
/// the lowest bit as a mark on most processors.
template <class Function> int slotOf(Function function)
{
    static_assert(std::is_member_function_pointer_v<Function>);
    std::ptrdiff_t words[2];
    static_assert(sizeof(words) == sizeof(function));
    std::memcpy(words, &function, sizeof(function));
    return static_cast<int>((words[0] & ~std::ptrdiff_t{1}) / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

/// Makes the protected virtual functions nameable.
struct ObjectProbe : QObject
{
    using QObject::childEvent;
    using QObject::connectNotify;
    using QObject::customEvent;
    using QObject::disconnectNotify;
    using QObject::timerEvent;
};

struct CommandProbe : DAbstractCommand
{
    using DAbstractCommand::addInstruction;
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const&) const override { return {}; }
};

struct ToolProbe : DAbstractTighteningTool
{
    void initPluginCommands() override {}
    IPlugin* createInstance(QUuid const&) const override { return nullptr; }
    char const* pluginSubTypeName() const override { return ""; }
};

} // namespace

/// The positions of the virtual functions that plugins call and override, which are part of the contract with
/// plugins that are already built.
class TestClassLayout : public QObject
{
    Q_OBJECT

private slots:
    void slot_data()
    {
        QTest::addColumn<int>("actual");
        QTest::addColumn<int>("expected");

        int next = slotOf(&QObject::event);
        auto const follows = [&next](char const* operation, int slot) {
            QTest::newRow(operation) << slot << next;
            ++next;
        };

        follows("QObject::event", slotOf(&QObject::event));
        follows("QObject::eventFilter", slotOf(&QObject::eventFilter));
        follows("QObject::timerEvent", slotOf(&ObjectProbe::timerEvent));
        follows("QObject::childEvent", slotOf(&ObjectProbe::childEvent));
        follows("QObject::customEvent", slotOf(&ObjectProbe::customEvent));
        follows("QObject::connectNotify", slotOf(&ObjectProbe::connectNotify));
        follows("QObject::disconnectNotify", slotOf(&ObjectProbe::disconnectNotify));
        int const firstBehindObject = next;

        // Behind the two entries of the destructor.
        next = 2;
        using PluginGetOk = QVariant (IPlugin::*)(QString const&, bool*) const;
        using PluginGetDefault = QVariant (IPlugin::*)(QString const&, QVariant const&) const;
        follows("IPlugin::objectUuid", slotOf(&IPlugin::objectUuid));
        follows("IPlugin::getName", slotOf(&IPlugin::getName));
        follows("IPlugin::pluginUuid", slotOf(&IPlugin::pluginUuid));
        follows("IPlugin::pluginName", slotOf(&IPlugin::pluginName));
        follows("IPlugin::pluginVersion", slotOf(&IPlugin::pluginVersion));
        follows("IPlugin::pluginType", slotOf(&IPlugin::pluginType));
        follows("IPlugin::compatiblePlugins", slotOf(&IPlugin::compatiblePlugins));
        follows("IPlugin::compatibilityString", slotOf(&IPlugin::compatibilityString));
        follows("IPlugin::getProperty(key, ok)", slotOf(static_cast<PluginGetOk>(&IPlugin::getProperty)));
        follows("IPlugin::getProperty(key, defaultValue)",
                slotOf(static_cast<PluginGetDefault>(&IPlugin::getProperty)));
        follows("IPlugin::setMainConfig", slotOf(&IPlugin::setMainConfig));
        follows("IPlugin::getInMainConfig", slotOf(&IPlugin::getInMainConfig));
        follows("IPlugin::getInPluginConfig", slotOf(&IPlugin::getInPluginConfig));
        follows("IPlugin::getDebugIdentification", slotOf(&IPlugin::getDebugIdentification));
        follows("IPlugin::createInstance", slotOf(&IPlugin::createInstance));
        follows("IPlugin::pluginSubTypeName", slotOf(&IPlugin::pluginSubTypeName));
        follows("IPlugin::getFunctions", slotOf(&IPlugin::getFunctions));
        follows("IPlugin::getFunctionDescription", slotOf(&IPlugin::getFunctionDescription));
        follows("IPlugin::getCommandParameters", slotOf(&IPlugin::getCommandParameters));
        follows("IPlugin::getMainConfig", slotOf(&IPlugin::getMainConfig));
        follows("IPlugin::setInPluginConfig", slotOf(&IPlugin::setInPluginConfig));
        follows("IPlugin::setInMainConfig", slotOf(&IPlugin::setInMainConfig));

        next = firstBehindObject;
        using GetOk = QVariant (DAbstractPlugin::*)(QString const&, bool*) const;
        using GetDefault = QVariant (DAbstractPlugin::*)(QString const&, QVariant const&) const;
        follows("DAbstractPlugin::objectUuid", slotOf(&DAbstractPlugin::objectUuid));
        follows("DAbstractPlugin::getName", slotOf(&DAbstractPlugin::getName));
        follows("DAbstractPlugin::pluginUuid", slotOf(&DAbstractPlugin::pluginUuid));
        follows("DAbstractPlugin::pluginName", slotOf(&DAbstractPlugin::pluginName));
        follows("DAbstractPlugin::pluginVersion", slotOf(&DAbstractPlugin::pluginVersion));
        follows("DAbstractPlugin::pluginType", slotOf(&DAbstractPlugin::pluginType));
        follows("DAbstractPlugin::compatiblePlugins", slotOf(&DAbstractPlugin::compatiblePlugins));
        follows("DAbstractPlugin::compatibilityString", slotOf(&DAbstractPlugin::compatibilityString));
        follows("DAbstractPlugin::getProperty(key, ok)",
                slotOf(static_cast<GetOk>(&DAbstractPlugin::getProperty)));
        follows("DAbstractPlugin::getProperty(key, defaultValue)",
                slotOf(static_cast<GetDefault>(&DAbstractPlugin::getProperty)));
        follows("DAbstractPlugin::getFunctions", slotOf(&DAbstractPlugin::getFunctions));
        follows("DAbstractPlugin::getFunctionDescription", slotOf(&DAbstractPlugin::getFunctionDescription));
        follows("DAbstractPlugin::getCommandParameters", slotOf(&DAbstractPlugin::getCommandParameters));
        follows("DAbstractPlugin::setMainConfig", slotOf(&DAbstractPlugin::setMainConfig));
        follows("DAbstractPlugin::getInMainConfig", slotOf(&DAbstractPlugin::getInMainConfig));
        follows("DAbstractPlugin::getInPluginConfig", slotOf(&DAbstractPlugin::getInPluginConfig));
        follows("DAbstractPlugin::getDebugIdentification", slotOf(&DAbstractPlugin::getDebugIdentification));
        follows("DAbstractPlugin::getMainConfig", slotOf(&DAbstractPlugin::getMainConfig));
        follows("DAbstractPlugin::setInPluginConfig", slotOf(&DAbstractPlugin::setInPluginConfig));
        follows("DAbstractPlugin::setInMainConfig", slotOf(&DAbstractPlugin::setInMainConfig));
        follows("DAbstractPlugin::initPluginCommands", slotOf(&DAbstractPlugin::initPluginCommands));
        follows("DAbstractPlugin::createInstance", slotOf(&DAbstractPlugin::createInstance));
        follows("DAbstractPlugin::pluginSubTypeName", slotOf(&DAbstractPlugin::pluginSubTypeName));

        // What a tool overrides stands where the host looks for it.
        next = firstBehindObject + 20;
        follows("tool's initPluginCommands", slotOf(&ToolProbe::initPluginCommands));
        follows("tool's createInstance", slotOf(&ToolProbe::createInstance));
        follows("tool's pluginSubTypeName", slotOf(&ToolProbe::pluginSubTypeName));

        // ICommand has no virtual destructor.
        next = 0;
        follows("ICommand::createCommand", slotOf(&ICommand::createCommand));
        follows("ICommand::linkWithItsOrder", slotOf(&ICommand::linkWithItsOrder));
        follows("ICommand::commandName", slotOf(&ICommand::commandName));
        follows("ICommand::stopCommandName", slotOf(&ICommand::stopCommandName));
        follows("ICommand::getOrderId", slotOf(&ICommand::getOrderId));
        follows("ICommand::getParameterOrderId", slotOf(&ICommand::getParameterOrderId));
        follows("ICommand::isRecurrent", slotOf(&ICommand::isRecurrent));
        follows("ICommand::isValid", slotOf(&ICommand::isValid));
        follows("ICommand::description", slotOf(&ICommand::description));
        follows("ICommand::fullDescription", slotOf(&ICommand::fullDescription));
        follows("ICommand::commandArguments", slotOf(&ICommand::commandArguments));
        follows("ICommand::commandExecute", slotOf(&ICommand::commandExecute));
        follows("ICommand::setReply", slotOf(&ICommand::setReply));
        follows("ICommand::finishTheCommand", slotOf(&ICommand::finishTheCommand));
        follows("ICommand::sigCommandFinished", slotOf(&ICommand::sigCommandFinished));

        next = firstBehindObject;
        follows("DAbstractCommand::linkWithItsOrder", slotOf(&DAbstractCommand::linkWithItsOrder));
        follows("DAbstractCommand::commandName", slotOf(&DAbstractCommand::commandName));
        follows("DAbstractCommand::stopCommandName", slotOf(&DAbstractCommand::stopCommandName));
        follows("DAbstractCommand::getOrderId", slotOf(&DAbstractCommand::getOrderId));
        follows("DAbstractCommand::getParameterOrderId", slotOf(&DAbstractCommand::getParameterOrderId));
        follows("DAbstractCommand::isRecurrent", slotOf(&DAbstractCommand::isRecurrent));
        follows("DAbstractCommand::isValid", slotOf(&DAbstractCommand::isValid));
        follows("DAbstractCommand::description", slotOf(&DAbstractCommand::description));
        follows("DAbstractCommand::fullDescription", slotOf(&DAbstractCommand::fullDescription));
        follows("DAbstractCommand::commandArguments", slotOf(&DAbstractCommand::commandArguments));
        follows("DAbstractCommand::commandExecute", slotOf(&DAbstractCommand::commandExecute));
        follows("DAbstractCommand::setReply", slotOf(&DAbstractCommand::setReply));
        follows("DAbstractCommand::finishTheCommand", slotOf(&DAbstractCommand::finishTheCommand));
        follows("DAbstractCommand::sigCommandFinished", slotOf(&DAbstractCommand::sigCommandFinished));
        follows("DAbstractCommand::addInstruction", slotOf(&CommandProbe::addInstruction));
        follows("command's createCommand", slotOf(&CommandProbe::createCommand));
    }

    void slot()
    {
        QFETCH(int, actual);
        QFETCH(int, expected);
        QCOMPARE(actual, expected);
    }
};

QTEST_GUILESS_MAIN(TestClassLayout)
#include "tst_class_layout.moc"
