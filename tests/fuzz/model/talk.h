#pragma once

#include "effects.h"
#include "expected_command.h"

#include <QMap>
#include <QSharedPointer>
#include <QString>
#include <QVariant>
#include <QtGlobal>

#include <functional>
#include <memory>
#include <vector>

class DAbstractCommand;
class DAbstractPlugin;
class ICommand;

/// The host of some talks: it numbers the instructions, hears what is logged, and is told of everything that
/// is not as the model wants it. One at a time.
class TalkHost
{
public:
    /// @p complain  is called between the calls of a command, never within one
    explicit TalkHost(std::function<void(QString const& what)> complain);
    ~TalkHost();
    TalkHost(TalkHost const&) = delete;
    TalkHost& operator=(TalkHost const&) = delete;

    /// The id of the last instruction that was posted to it.
    quint64 lastId() const { return m_lastId; }

private:
    friend class Talk;

    // Far from the ids that a command without an order gives its instructions.
    static constexpr quint64 c_firstId = 1000;

    static void hear(QtMsgType type, QMessageLogContext const& context, QString const& text);

    inline static TalkHost* s_current = nullptr;
    std::function<void(QString const&)> const m_complain;
    QtMessageHandler const m_formerHandler;
    quint64 m_lastId = c_firstId;
    quint64 m_lastExpectedId = c_firstId;
    /// Of the command that works just now: what comes of it, and its class.
    Effects* m_heard = nullptr;
    QString m_className;
};

/// A working command between its host and its controller, and beside it what it ought to be. Whatever is done
/// to it is done to both and compared.
class Talk
{
public:
    /// Of every instruction, in milliseconds.
    static constexpr int c_timeAllowance = 4000;

    Talk(TalkHost& host, DAbstractPlugin const& tool, QString const& name,
         QMap<QString, QVariant> const& parameters);
    ~Talk();
    Talk(Talk const&) = delete;
    Talk& operator=(Talk const&) = delete;

    bool isAlive() const { return !m_command.isNull(); }
    QString stopName() const { return m_expected->stopName(); }
    bool isRunning() const { return m_expected->isRunning(); }
    bool awaits(quint64 id) const { return m_expected->awaits(id); }
    QList<quint64> awaited() const { return m_expected->awaited(); }
    /// What came of the last call.
    Effects const& effects() const { return m_effects; }

    /// Links the command to an order of its own, a new one. A new talk has one.
    void giveOrder();
    void takeOrder();
    void destroyOrders();

    // Not once it has been released.
    void execute();
    void finish(bool success);
    void reply(quint64 id, QMap<QString, QVariant> const& reply);
    void release();

    void allowancePassed(quint64 id);
    void instructionFailed(quint64 id);

private:
    class Order;

    void check(bool isSo, QString const& otherwise) const;
    void complain(QString const& what) const;
    template <class Do, class Expect> void throughOrder(Do const& doIt, Expect const& expect);
    template <class Do, class Expect> void call(Do const& doIt, Expect const& expect);

    TalkHost& m_host;
    QString const m_name;
    Effects m_effects;
    std::vector<std::unique_ptr<Order>> m_orders;
    Order* m_order = nullptr;
    QSharedPointer<ICommand> m_command;
    DAbstractCommand* m_object;
    std::unique_ptr<ExpectedCommand> m_expected;
};
