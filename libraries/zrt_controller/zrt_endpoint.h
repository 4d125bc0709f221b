#pragma once

#include "own_thread.h"
#include "zrt_controller.h"
#include "zrt_faults.h"
#include "zrt_simulated_controller.h"

/// The way to a simulated controller and to its tool: replies take their time, event messages and the
/// progress of a restore are sent until their instruction is withdrawn, and faults apply.
///
/// Tasks of the clock keep an endpoint only while they run.
class ZrtEndpoint : public std::enable_shared_from_this<ZrtEndpoint>
{
public:
    /// Shared, because a callback may have a state of its own.
    using Reply = std::shared_ptr<ZrtSimulatedController::Reply const>;

    ZrtEndpoint(ZrtSetup const& setup, ZrtClock const& clock);
    ~ZrtEndpoint();
    ZrtEndpoint(ZrtEndpoint const&) = delete;
    ZrtEndpoint& operator=(ZrtEndpoint const&) = delete;

    ZrtState const& state() const { return m_controller.state(); }
    bool isConnected() const { return m_isConnected; }
    bool isInUse(quint64 id) const;
    bool isTurning() const { return m_isTurning; }

    void post(quint64 id, QString const& instruction, QVariantMap const& arguments, Reply const& onReply);
    bool withdraw(quint64 id);
    void setConnected(bool connected);
    std::optional<int> pullTrigger();
    void pressReverse();

    OwnThread const thread;
    ZrtFaults faults;
    std::shared_ptr<std::function<void()> const> onChange;

private:
    /// Where the replies to one instruction go, and which faults apply to them.
    struct Line
    {
        quint64 id = 0;
        Reply onReply;
        QList<ZrtFault> faults;
    };
    struct Restore
    {
        Line line;
        ZrtBackup backup;
        int first = 0;
        int last = 0;
        bool withParameters = false;
        QList<int> presets; ///< the numbers to restore
        int done = 0;
    };

    void send(Line const& line, QVariantMap reply);
    void startRestore(Line const& line, QVariantMap const& arguments);
    void planRestore(std::shared_ptr<Restore> const& restore);
    void continueRestore(std::shared_ptr<Restore> const& restore);
    void tellChange(bool isChanged = false);

    ZrtController m_controller;
    ZrtTimes const m_times;
    ZrtClock m_clock;
    bool m_isConnected;
    bool m_isTurning = false;
    QMap<quint64, Line> m_listeners;
    QMap<quint64, std::shared_ptr<Restore>> m_restores;
    QMap<quint64, int> m_onTheWay; ///< replies
};
