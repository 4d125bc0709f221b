#pragma once

#include "host/endpoint.h"
#include "host/tool_site.h"
#include "zrt_controller.h"
#include "zrt_faults.h"

#include <QMap>

class Clock;

/// How long things take on the way to a controller and in it, in milliseconds.
struct ZrtTimes
{
    int reply = 5;   ///< from an instruction to its reply, and from the end of a tightening to its event
    int preset = 50; ///< to restore one preset
};

/// The way to a simulated controller and to its tool. Instructions reach the controller at once, replies take
/// their time; event messages and the progress of a restore are sent until their instruction is withdrawn.
/// Faults happen here.
class ZrtEndpoint final : public Endpoint, public ToolSite
{
public:
    ZrtEndpoint(ZrtController& controller, ZrtFaults& faults, ZrtTimes times, Clock& clock);

    void setConnected(bool connected) { m_isConnected = connected; }

    bool isConnected() const override { return m_isConnected; }
    void post(quint64 id, QString const& instruction, QVariantMap const& arguments, Reply onReply) override;
    void withdraw(quint64 id) override;

    std::optional<int> pullTrigger() override;
    void pressReverse() override;
    bool isReverse() const override;

private:
    /// Where the replies to one instruction go, and what befalls them on the way.
    struct Line
    {
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
    void startRestore(quint64 id, Line const& line, QVariantMap const& arguments);
    void continueRestore(quint64 id);

    ZrtController& m_controller;
    ZrtFaults& m_faults;
    ZrtTimes const m_times;
    Clock& m_clock;
    bool m_isConnected = true;
    QMap<quint64, Line> m_listeners;
    QMap<quint64, Restore> m_restores;
};
