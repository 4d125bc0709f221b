#include "transcript.h"

#include "trace/event_json.h"

#include <QStringList>

namespace
{

QString valueText(QVariant const& value)
{
    return QString::fromUtf8(toLine(toJson(value)).trimmed());
}

QString mapText(QVariantMap const& map)
{
    QStringList entries;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        entries += it.key() + QStringLiteral(" = ") + valueText(it.value());
    return entries.join(QStringLiteral(", "));
}

// A line's second column: which order it is about, and what happens to it.
QString about(quint64 order, QString const& what)
{
    return QStringLiteral("#%1  %2").arg(order, -3).arg(what);
}

struct ToText
{
    QString operator()(OrderStarted const& event) const
    {
        return about(event.order, event.command)
               + (event.parameters.isEmpty() ? QString() : QStringLiteral("  ") + mapText(event.parameters));
    }
    QString operator()(StopOrdered const& event) const
    {
        return QStringLiteral("      ") + event.stopCommand;
    }
    QString operator()(InstructionPosted const&) const { return {}; }
    QString operator()(InstructionWithdrawn const&) const { return {}; }
    QString operator()(ReplyArrived const&) const { return {}; }
    QString operator()(ReplyDropped const&) const { return {}; }
    QString operator()(ResultUpdated const& event) const
    {
        return about(event.order, QStringLiteral("  %1 = %2").arg(event.key, valueText(event.value)));
    }
    QString operator()(OrderFinished const& event) const
    {
        return about(event.order,
                     event.success ? QStringLiteral("done") : QStringLiteral("FAILED: ") + event.message);
    }
    QString operator()(ExpectationMissed const& event) const
    {
        return about(event.order, QStringLiteral("NOT AS EXPECTED: %1 is %2, expected was %3")
                                      .arg(event.key, valueText(event.actual), valueText(event.expected)));
    }
    QString operator()(LogWritten const& event) const
    {
        return QStringLiteral("      %1: %2").arg(event.level, event.text.trimmed());
    }
    QString operator()(RunFinished const& event) const
    {
        QString text =
            QStringLiteral("      %1 steps done, %2 failed").arg(event.succeeded).arg(event.failed);
        if (event.notRun > 0)
            text += QStringLiteral(", %1 not run").arg(event.notRun);
        if (event.droppedReplies > 0)
            text += QStringLiteral(", %1 late replies dropped").arg(event.droppedReplies);
        return text;
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
