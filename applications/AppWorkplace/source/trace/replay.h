#pragma once

#include "host/endpoint.h"
#include "trace_reader.h"

#include <QMap>
#include <QStringList>

#include <vector>

class ZrtClock;
class Tool;
class Workstation;

/// One thing that was done to the plugin, and what came of it: in the record, and now. Instructions have the
/// ids of the record; 0 is the id of one that the record does not have.
struct ReplayStep
{
    struct Outcome
    {
        qint64 time;
        RunEvent event;

        /// What is compared: its line in a trace, but for the line numbers that say no more than where in the
        /// plugin's source something stands.
        QByteArray compared() const;
    };

    TraceEntry cause;
    std::vector<Outcome> recorded;
    std::vector<Outcome> replayed;
    /// Why the step could not be done; empty if it could.
    QString problem;

    bool isSame() const;
};

/// Feeds the recorded side of a conversation (orders, stops, replies) to a tool, at the times of the record.
/// It is the endpoint that the recorded instructions went to.
///
/// What comes of a step is what the tool asks, publishes and logs until the next step. Traces of a debug
/// build (log lines of the level "debug") do not count.
class Replay final : private Endpoint
{
public:
    /// The first four belong together and must outlive the replay; @p targets are the endpoints that the
    /// recorded instructions went to.
    Replay(Tool& tool, Workstation& workstation, ZrtClock& clock, RunEvents& events,
           QStringList const& targets);

    /// Reads one step and what the record has of its outcome, and does it; nothing when all have been done.
    std::optional<ReplayStep> next(TraceReader& trace);

private:
    bool isConnected() const override { return m_reachable; }
    void post(quint64 id, QString const& instruction, QVariantMap const& arguments, Reply onReply) override;
    void withdraw(quint64 /*id*/) override {}

    void perform(ReplayStep& step);
    void pass(qint64 until, bool isLast);
    void note(qint64 time, RunEvent const& event);
    quint64 recordedId(InstructionPosted const& posted) const;

    Tool& m_tool;
    ZrtClock& m_clock;
    std::optional<TraceEntry> m_nextCause;
    ReplayStep* m_step = nullptr;
    QMap<quint64, quint64> m_recordedIds; // of the instructions posted now
    QMap<quint64, Reply> m_replies;       // by the recorded ids
    bool m_reachable = true;              // for the instruction that is being posted
};

/// What has to be known of a trace before it is replayed.
struct TraceSummary
{
    RunStarted begin;
    QStringList targets; ///< the endpoints that instructions went to
};

/// Checks a whole trace: whether it is one, is consistent in itself, and @p tool has its commands.
TraceSummary checkTrace(QString const& fileName, Tool const& tool);
