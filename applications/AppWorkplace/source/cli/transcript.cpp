#include "transcript.h"

#include "trace/event_json.h"
#include "json/variant_json.h"

#include <QStringList>

namespace
{

QString mapText(QVariantMap const& map)
{
    QStringList entries;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        entries += it.key() + QStringLiteral(" = ") + toText(it.value());
    return entries.join(QStringLiteral(", "));
}

// A line's second column: which order it is about, and what happens to it.
QString about(quint64 order, QString const& what)
{
    return QStringLiteral("#%1  %2").arg(order, -3).arg(what);
}

QString aside(QString const& what)
{
    return QStringLiteral("      ") + what;
}

struct ToText
{
    QString operator()(RunStarted const& event) const
    {
        return aside(QStringLiteral("%1 %2, simulated controller %3")
                         .arg(event.plugin, event.version, event.controller));
    }
    QString operator()(OrderStarted const& event) const
    {
        return about(event.order, event.command)
               + (event.parameters.isEmpty() ? QString() : QStringLiteral("  ") + mapText(event.parameters));
    }
    QString operator()(StopOrdered const& event) const
    {
        return aside(event.stopCommand
                     + (event.running > 0
                            ? QString()
                            : QStringLiteral("  FAILED: no running command stops by that name")));
    }
    QString operator()(InstructionPosted const&) const { return {}; }
    QString operator()(InstructionWithdrawn const&) const { return {}; }
    QString operator()(ReplyArrived const&) const { return {}; }
    QString operator()(ReplyDropped const&) const { return {}; }
    QString operator()(ResultUpdated const& event) const
    {
        return about(event.order, QStringLiteral("  %1 = %2").arg(event.key, toText(event.value)));
    }
    QString operator()(OrderFinished const& event) const
    {
        return about(event.order,
                     event.success ? QStringLiteral("done") : QStringLiteral("FAILED: ") + event.message);
    }
    QString operator()(PersonActed const& event) const
    {
        return aside(QStringLiteral("operator: ") + event.what
                     + (event.effect.isEmpty() ? QString() : QStringLiteral(", ") + event.effect));
    }
    QString operator()(WaitFailed const& event) const
    {
        return aside(QStringLiteral("FAILED: ") + event.message);
    }
    QString operator()(ExpectationMissed const& event) const
    {
        return about(event.order, QStringLiteral("NOT AS EXPECTED: %1 is %2, expected was %3")
                                      .arg(event.key, toText(event.actual), toText(event.expected)));
    }
    QString operator()(LogWritten const& event) const
    {
        return aside(event.level + QStringLiteral(": ") + event.text.trimmed());
    }
    QString operator()(RunFinished const& event) const
    {
        int const steps = event.done + event.failed + event.notRun;
        QString text = QStringLiteral("%1 of %2 steps done").arg(event.done).arg(steps);
        if (event.failed > 0)
            text += QStringLiteral(", %1 FAILED, %2 not run").arg(event.failed).arg(event.notRun);
        if (event.droppedReplies > 0)
            text += QStringLiteral(", %1 late replies dropped").arg(event.droppedReplies);
        return aside(text);
    }
};

} // namespace

QByteArray toTranscript(qint64 time, RunEvent const& event)
{
    QString const line = std::visit(ToText(), event);
    if (line.isEmpty())
        return {};
    return QStringLiteral("%1 s  %2\n").arg(static_cast<double>(time) / 1000.0, 9, 'f', 3).arg(line).toUtf8();
}

QByteArray toJsonTranscript(qint64 time, RunEvent const& event)
{
    bool const isForTraces = std::holds_alternative<InstructionPosted>(event)
                             || std::holds_alternative<InstructionWithdrawn>(event)
                             || std::holds_alternative<ReplyArrived>(event)
                             || std::holds_alternative<ReplyDropped>(event);
    return isForTraces ? QByteArray() : toLine(toJson(time, event));
}
