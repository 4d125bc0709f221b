#pragma once

#include "literals.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_tightening_tool.h>

#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <QVariant>

#include <functional>
#include <utility>

class ScriptedCommand;

/// What a command of a ScriptedPlugin is and does.
struct CommandScript
{
    using Execute = std::function<bool(ScriptedCommand&)>;
    using OnReply = std::function<bool(ScriptedCommand&, QVariantMap const&)>;

    QString name;
    QString stopName;
    QList<DDeclaration> parameters;
    QList<DDeclaration> results;
    /// What commandExecute() does when the base has agreed; without it nothing is posted.
    Execute execute;
    /// Answers that it has started without asking the base.
    bool skipsBase = false;
    /// What a reply handler does; without it every reply is accepted.
    OnReply onReply;
    /// What finishTheCommand() does in place of the base.
    std::function<bool(ScriptedCommand&)> onFinish;
};

/// A command that follows its script.
class ScriptedCommand : public DAbstractCommand
{
public:
    ScriptedCommand(CommandScript script, QVariantMap const& parameters, QSharedPointer<QStringList> journal,
                    QObject* parent)
        : DAbstractCommand(script.name, script.stopName, parameters, parent)
        , m_script(std::move(script))
        , m_journal(std::move(journal))
    {
        setDescription(m_script.name + " as scripted"_s);
        for (auto const& one : m_script.parameters)
            declareAParameter(one.key, one.typeTag, one.label, one.defaultValue);
        for (auto const& one : m_script.results)
            declareAResult(one.key, one.typeTag, one.label, one.defaultValue);
    }
    ~ScriptedCommand() override
    {
        m_journal->append((m_isWorking ? "working "_s : "prototype "_s) + m_script.name);
    }

    QSharedPointer<ICommand> createCommand(QVariantMap const& parameters) const override
    {
        QSharedPointer<ScriptedCommand> const made(
            new ScriptedCommand(m_script, parameters, m_journal, parent()));
        made->m_isWorking = true;
        return made;
    }
    bool commandExecute() override
    {
        return (m_script.skipsBase || DAbstractCommand::commandExecute())
               && (!m_script.execute || m_script.execute(*this));
    }
    bool finishTheCommand(bool& success) override
    {
        return m_script.onFinish ? m_script.onFinish(*this) : DAbstractCommand::finishTheCommand(success);
    }

    quint64 post(QString const& target, QString const& instruction, QVariantMap const& arguments = {},
                 int timeAllowance = 4000)
    {
        return addInstruction(target, instruction, arguments, timeAllowance,
                              OnReply(this, &ScriptedCommand::handleReply));
    }
    void withdraw(quint64 instruction) { stopTheInstruction(instruction); }
    bool publish(QString const& key, QVariant const& value) { return commandUpdateResult(key, value); }
    bool finish(bool success) { return commandFinish(success); }
    QVariant parameter(QString const& key) const { return getParameterValue(key, QVariant()); }

private:
    bool handleReply(quint64 /*instructionId*/, QVariantMap const& reply)
    {
        return !m_script.onReply || m_script.onReply(*this, reply);
    }

    CommandScript const m_script;
    QSharedPointer<QStringList> const m_journal;
    bool m_isWorking = false;
};

/// A plugin whose catalogue is a list of scripts; its instances have the same. It writes into a journal what
/// is destroyed, in the order in which it goes: "working NAME", "prototype NAME" and "instance".
class ScriptedPlugin : public DAbstractTighteningTool
{
public:
    explicit ScriptedPlugin(QList<CommandScript> scripts, QUuid const& objectUuid = {},
                            QSharedPointer<QStringList> journal = QSharedPointer<QStringList>::create())
        : DAbstractTighteningTool(QUuid(), "Scripted"_s, 0, objectUuid, nullptr)
        , m_scripts(std::move(scripts))
        , m_journal(std::move(journal))
    {}
    ~ScriptedPlugin() override { m_journal->append("instance"_s); }

    QStringList const& journal() const { return *m_journal; }

    void initPluginCommands() override
    {
        for (auto const& script : qAsConst(m_scripts))
            declareInstructionCommand(new ScriptedCommand(script, {}, m_journal, this));
        emit sigCommandsInitDone(objectUuid(), commandNames());
    }
    IPlugin* createInstance(QUuid const& objectUuid) const override
    {
        return new ScriptedPlugin(m_scripts, objectUuid, m_journal);
    }
    char const* pluginSubTypeName() const override { return "scripted"; }

private:
    QList<CommandScript> const m_scripts;
    QSharedPointer<QStringList> const m_journal;
};
