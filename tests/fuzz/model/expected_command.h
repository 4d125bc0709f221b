#pragma once

#include "effects.h"

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <map>
#include <memory>

/// A command of the plugin as it ought to be: told what a host does to a real one, it answers what must come
/// of it. It knows what the commands promise (docs/commands.md, docs/log-lines.md, docs/controller.md) and
/// what the host framework does with their instructions, and uses no code of either.
///
/// This class is the framework's half. What the commands promise is in expected_commands.cpp, a class for
/// each.
class ExpectedCommand
{
public:
    using Map = QMap<QString, QVariant>;

    /// What the catalogue says of a command; the catalogue has a test of its own.
    struct Declared
    {
        QString stopName; ///< empty if it ends by itself
        Map defaults;     ///< of its parameters
        Map results;      ///< with their defaults
    };

    /// What the model lacks to know exactly these commands, and where to add it; empty if nothing.
    static QString complaint(QStringList const& names);
    /// Null if the model does not know the command.
    /// @p lastId  the last id that the host has given an instruction, shared by all of its commands
    static std::unique_ptr<ExpectedCommand> make(QString const& name, Declared const& declared,
                                                 Map const& parameters, quint64& lastId);

    /// What a command is made with.
    struct Given
    {
        QString file;
        Declared declared;
        Map parameters;
        quint64& lastId;
    };
    /// Makes a command known: one of these stands behind each class.
    template <class Command> struct Known
    {
        /// @p file  the source file that its error lines name
        Known(char const* name, char const* file)
        {
            all()[QString::fromLatin1(name)] = {file,
                                                [](Given const& given) -> std::unique_ptr<ExpectedCommand> {
                                                    return std::make_unique<Command>(given);
                                                }};
        }
    };

    explicit ExpectedCommand(Given const& given) : m_given(given), m_results(given.declared.results) {}
    virtual ~ExpectedCommand() = default;
    ExpectedCommand(ExpectedCommand const&) = delete;
    ExpectedCommand& operator=(ExpectedCommand const&) = delete;

    Effects execute();
    Effects reply(quint64 id, Map const& reply);
    Effects finish(bool success);
    /// These two come through the order and do nothing without one.
    Effects allowancePassed(quint64 id);
    Effects instructionFailed(quint64 id);

    void setLinked(bool isLinked) { m_isLinked = isLinked; }
    bool isRunning() const { return m_isRunning; }
    /// Whether a reply to this instruction would reach a handler.
    bool awaits(quint64 id) const { return m_pending.count(id) != 0; }
    /// The instructions without a reply, in the order in which they were posted.
    QList<quint64> awaited() const;
    QString stopName() const { return m_given.declared.stopName; }
    /// The last value of every declared result.
    Map const& results() const { return m_results; }

protected:
    /// What is done with a reply; answers what the handler must.
    using Rule = std::function<bool(Map const& reply)>;

    /// What the command does when it is executed.
    virtual void start() = 0;
    /// What it does when it is finished, before it ends.
    virtual void wrapUp() { withdrawAll(); }
    virtual bool startsWithoutOrder() const { return false; }

    /// The order's value, else the declared default.
    QVariant parameter(char const* key) const;
    /// What the order gives, as a text; declared or not.
    QString text(char const* key) const;
    quint64 post(char const* name, Map const& arguments, Rule const& rule);
    void withdraw(quint64 id);
    /// Publishes a result and answers true.
    bool update(char const* key, QVariant const& value);
    /// Writes an error line and answers false.
    /// @p line  where it has been laid down, else 0
    bool refuse(int line, QString const& message);
    void inform(QString const& text) { m_effects.addInfo(text); }

private:
    struct Pending
    {
        Rule rule;
        bool isAnswered = false;
        bool isOverdue = false;
    };
    struct Maker
    {
        char const* file = nullptr;
        std::unique_ptr<ExpectedCommand> (*make)(Given const& given) = nullptr;
    };

    static std::map<QString, Maker>& all();

    bool isOneShot() const { return stopName().isEmpty(); }
    void withdrawAll();
    void fail();
    void end(bool success);
    void endIfDone();

    Given m_given;
    Map m_results;
    std::map<quint64, Pending> m_pending;
    Effects m_effects;
    quint64 m_lastOwnId = 0;
    bool m_isLinked = false;
    bool m_isRunning = false;
    bool m_hasFailed = false;
};
