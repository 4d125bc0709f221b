#include "transcript.h"

#include "output.h"

#include "sequence/sequence.h"
#include "trace/event_json.h"

#include <files/input_error.h>
#include <files/variant_json.h>

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

// What the order gives, without the tool's record, which stands in every one.
QVariantMap withoutRecord(QVariantMap parameters)
{
    auto const keys = toolRecordKeys();
    for (auto const& key : keys)
        parameters.remove(key);
    return parameters;
}

// An event of the controller as a row of a table, with units. The torque counts hundredths of a newton metre.
QString eventRow(QVariantMap const& values)
{
    constexpr double hundredths = 100.0;
    auto const number = [&values](char const* key) { return values.value(QString::fromLatin1(key)).toInt(); };
    QString row = QStringLiteral("  event %1  %2  program %3  %4 Nm  %5 deg  %6 rpm  %7 ms")
                      .arg(number("eventCountNo"), 4)
                      .arg(values.value(QStringLiteral("status")).toString(), -8)
                      .arg(number("program"), 2)
                      .arg(number("torque") / hundredths, 6, 'f', 2)
                      .arg(number("angle"), 5)
                      .arg(number("speed"), 4)
                      .arg(number("time"), 5);
    if (values.contains(QStringLiteral("error")))
        row += QStringLiteral("  error %1").arg(toText(values.value(QStringLiteral("error"))));
    return row;
}

bool isControllerEvent(ResultUpdated const& event)
{
    return event.key == QLatin1String("eventData") && event.value.toMap().contains(QStringLiteral("torque"));
}

bool isProgress(ResultUpdated const& event)
{
    return event.key == QLatin1String("statusData")
           && event.value.toMap().contains(QStringLiteral("progress"));
}

QString progressBar(QVariantMap const& status)
{
    constexpr int width = 20;
    constexpr int percent = 100;
    int const progress = qBound(0, status.value(QStringLiteral("progress")).toInt(), percent);
    int const filled = width * progress / percent;
    return QStringLiteral("  restoring [%1%2] %3 %, preset %4")
        .arg(QString(filled, QLatin1Char('#')), QString(width - filled, QLatin1Char('.')))
        .arg(progress, 3)
        .arg(status.value(QStringLiteral("preset")).toInt());
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
    template <class Event> QString operator()(Event const& /*event*/) const
    {
        static_assert(Event::c_kind.isOfTracesAlone, "how is this event shown?");
        return {};
    }
    QString operator()(RunStarted const& event) const
    {
        return aside(QStringLiteral("%1 %2, simulated controller %3")
                         .arg(event.plugin, event.version, event.controller));
    }
    QString operator()(OrderStarted const& event) const
    {
        return about(event.order, event.command)
               + (withoutRecord(event.parameters).isEmpty()
                      ? QString()
                      : QStringLiteral("  ") + mapText(withoutRecord(event.parameters)));
    }
    QString operator()(StopOrdered const& event) const
    {
        return aside(event.stopCommand
                     + (event.running > 0
                            ? QString()
                            : QStringLiteral("  FAILED: no running command stops by that name")));
    }
    QString operator()(InstructionFailed const& event) const
    {
        return event.goesOn ? about(event.order,
                                    QStringLiteral("  %1 NOT DELIVERED: %2").arg(event.name, event.reason))
                            : QString();
    }
    QString operator()(ResultUpdated const& event) const
    {
        if (isControllerEvent(event))
            return about(event.order, eventRow(event.value.toMap()));
        if (isProgress(event))
            return about(event.order, progressBar(event.value.toMap()));
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
        return aside(nameOf(event.level) + QStringLiteral(": ") + event.text.trimmed());
    }
    QString operator()(RunFinished const& event) const
    {
        int const steps = event.done + event.failed + event.notRun;
        QString text = QStringLiteral("%1 of %2 steps done").arg(event.done).arg(steps);
        if (event.failed > 0)
            text += QStringLiteral(", %1 FAILED, %2 not run").arg(event.failed).arg(event.notRun);
        if (event.droppedReplies > 0)
            text += QStringLiteral(", dropped replies: %1").arg(event.droppedReplies);
        return aside(text);
    }
};

} // namespace

void Transcript::show(qint64 time, RunEvent const& event)
{
    QString const text = onOneLine(std::visit(ToText(), event));
    if (text.isEmpty())
        return;
    constexpr double second = 1000.0;
    QByteArray const line =
        QStringLiteral("%1 s  %2").arg(static_cast<double>(time) / second, 9, 'f', 3).arg(text).toUtf8();
    auto const* const result = std::get_if<ResultUpdated>(&event);
    bool const isBar = m_isTerminal && result && isProgress(*result);
    if (isBar && m_isBarOpen)
        m_output.write("\r");
    else if (m_isBarOpen)
        m_output.write("\n");
    m_output.write(isBar ? line : line + '\n');
    m_isBarOpen = isBar;
}

QByteArray toJsonTranscript(qint64 time, RunEvent const& event)
{
    auto const* const failed = std::get_if<InstructionFailed>(&event);
    bool const isForTraces = kindOf(event).isOfTracesAlone || (failed && !failed->goesOn);
    return isForTraces ? QByteArray() : toLine(toJson(time, event));
}
