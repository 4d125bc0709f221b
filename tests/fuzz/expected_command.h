#pragma once

#include <QList>
#include <QMap>
#include <QPair>
#include <QString>
#include <QVariant>

#include <map>

/// An instruction as it reached an endpoint.
struct Post
{
    quint64 id = 0;
    QString name;
    QMap<QString, QVariant> arguments;
};

/// An error line, taken apart.
struct ErrorLine
{
    QString file; ///< without its folder
    int line = 0; ///< 0 where any will do
    QString message;
};

/// What comes of one call of a command: each kind in the order in which it came, and in which order the kinds
/// came.
struct Effects
{
    bool answer = false;
    QList<Post> posts;
    QList<QPair<QString, QVariant>> results;
    QList<ErrorLine> errors;
    QStringList infos;
    QList<quint64> withdrawn;
    QList<quint64> dropped;
    QList<bool> ends;     ///< as the command's signal tells them: whether it succeeded
    QList<bool> toldEnds; ///< as its order is told of them
    QByteArray kinds;     ///< a letter for each, of whatever kind

    void add(Post const& post) { noted('p', posts) += post; }
    void add(ErrorLine const& error) { noted('e', errors) += error; }
    void addResult(QString const& key, QVariant const& value) { noted('r', results).append({key, value}); }
    void addInfo(QString const& info) { noted('i', infos) += info; }
    void addWithdrawn(quint64 id) { noted('w', withdrawn) += id; }
    void addDropped(quint64 id) { noted('d', dropped) += id; }
    void addEnd(bool success) { noted('s', ends) += success; }
    void addToldEnd(bool success) { noted('t', toldEnds) += success; }

private:
    template <class List> List& noted(char kind, List& list)
    {
        kinds += kind;
        return list;
    }
};

/// A command of the plugin as it ought to be: told what a host does to a real one, it answers what must come
/// of it. It knows what the commands promise (docs/commands.md, docs/log-lines.md, docs/controller.md) and
/// what the host framework does with their instructions, and uses no code of either.
class ExpectedCommand
{
public:
    /// Ends the fuzzer, with a complaint that says what to add, unless there is a row for this command.
    static void checkKnows(QString const& name) { kindOf(name); }

    /// @p lastId  the last id that the host has given an instruction, shared by all of its commands
    ExpectedCommand(QString const& name, QMap<QString, QVariant> parameters, quint64& lastId);

    Effects execute();
    Effects reply(quint64 id, QMap<QString, QVariant> const& reply);
    Effects finish(bool success);
    /// These two come through the order and do nothing without one.
    Effects allowancePassed(quint64 id);
    Effects instructionFailed(quint64 id);

    void setLinked(bool isLinked) { m_isLinked = isLinked; }
    bool isLinked() const { return m_isLinked; }
    bool isRunning() const { return m_isRunning; }
    /// Whether a reply to this instruction would reach a handler.
    bool awaits(quint64 id) const { return m_pending.count(id) != 0; }
    bool awaitsReplies() const;
    /// The instructions without a reply, in the order in which they were posted.
    QList<quint64> awaited() const;
    /// The name that stops it; empty if it ends by itself.
    QString stopName() const;
    /// The name of its source file and of its class.
    QString fileName() const;
    QByteArray className() const;

    /// The last value of every declared result.
    QMap<QString, QVariant> const& results() const { return m_results; }

private:
    struct Kind;
    struct Pending
    {
        Post post;
        bool isAnswered = false;
        bool isOverdue = false;
    };
    using First = void (ExpectedCommand::*)();
    using Rule = bool (ExpectedCommand::*)(QMap<QString, QVariant> const& reply);

    static Kind const& kindOf(QString const& name);

    // What the commands promise.
    bool accept(QMap<QString, QVariant> const& reply);
    void initFirst();
    bool initInfo(QMap<QString, QVariant> const& reply);
    bool initLock(QMap<QString, QVariant> const& reply);
    bool initScreen(QMap<QString, QVariant> const& reply);
    void startFirst();
    bool startLock(QMap<QString, QVariant> const& reply);
    bool startPreset(QMap<QString, QVariant> const& reply);
    void stopFirst();
    bool stopLock(QMap<QString, QVariant> const& reply);
    void directionFirst();
    bool directionInfo(QMap<QString, QVariant> const& reply);
    bool directionRegister(QMap<QString, QVariant> const& reply);
    void presetFirst();
    bool presetInfo(QMap<QString, QVariant> const& reply);
    void eventFirst();
    bool event(QMap<QString, QVariant> const& reply);
    void triggerFirst();
    bool triggerProgram(QMap<QString, QVariant> const& reply);
    bool triggerLock(QMap<QString, QVariant> const& reply);
    bool triggerEvent(QMap<QString, QVariant> const& reply);
    void restoreFirst();
    bool restoreStatus(QMap<QString, QVariant> const& reply);
    void lockTool();

    // What the framework does.
    QVariant parameter(char const* key, QVariant const& fallback) const;
    QString textOf(char const* key) const;
    quint64 post(char const* name, QMap<QString, QVariant> const& arguments = {});
    bool update(char const* key, QVariant const& value);
    bool refuse(int line, QString const& message, bool answer = false);
    bool refuseFormat(int line, QVariant const& values);
    void withdraw(quint64 id);
    void fail();
    void end(bool success);
    void endIfDone();

    Kind const& m_kind;
    QMap<QString, QVariant> m_parameters;
    quint64& m_lastId;
    QMap<QString, QVariant> m_results;
    std::map<quint64, Pending> m_pending;
    Effects m_effects;
    quint64 m_lastOwnId = 0;
    bool m_isLinked = false;
    bool m_isRunning = false;
    bool m_hasFailed = false;

    quint64 m_listening = 0;
    bool m_isFinishing = false;
    int m_lastCount = -1;
    bool m_isToolInfoSent = false;
};
