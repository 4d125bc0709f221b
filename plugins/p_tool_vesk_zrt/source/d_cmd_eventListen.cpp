#include "d_cmd_eventListen.h"

#include "zrt_command.h"
#include "zrt_log.h"

namespace
{

constexpr zrt::EventLines c_errorLines{87, 83};

} // namespace

DCmdEventListen::DCmdEventListen(QMap<QString, QVariant> const& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("startListening"), QStringLiteral("stopListening"), parameters, parent)
    , m_errorTexts{
          {300, QStringLiteral("Run time limit (Forward)")},
          {301, QStringLiteral("Run time limit (Reverse)")},
          {302, QStringLiteral("Model setting error")},
          {303, QStringLiteral("Model cancel")},
          {304, QStringLiteral("Motor stall by loosening failure")},
          {309, QStringLiteral("Bit socket tray")},
          {310, QStringLiteral("Time over in screw counting")},
          {311, QStringLiteral("Screw missing")},
          {330, QStringLiteral("Min Angle error")},
          {331, QStringLiteral("Target angle setting error")},
          {332, QStringLiteral("Angle over")},
          {333, QStringLiteral("No torque complete")},
          {334, QStringLiteral("Engaging torque detection fail")},
          {335, QStringLiteral("Converted torque error")},
          {336, QStringLiteral("Over torque error")},
          {337, QStringLiteral("Torque up at free speed")},
          {338, QStringLiteral("Thread tap max torque error")},
          {339, QStringLiteral("Thread tap min max range error")},
          {342, QStringLiteral("Holding time max angle")},
      }
{
    // The description is the one that hosts know.
    setDescription(QStringLiteral("Start polling current point state"));
    declareAResult(QStringLiteral("eventData"), QStringLiteral("varM"), QStringLiteral("Event data from ZRT"),
                   QVariant());
}

DCmdEventListen::DCmdEventListen(QObject* parent) : DCmdEventListen(QMap<QString, QVariant>(), parent) {}

QSharedPointer<ICommand> DCmdEventListen::createCommand(QMap<QString, QVariant> const& parameters) const
{
    return zrt::clone(*this, parameters);
}

bool DCmdEventListen::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    addInstruction(zrt::device(), QStringLiteral("listenEventsData"), {}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdEventListen::onEvent));
    return true;
}

bool DCmdEventListen::onEvent(quint64 /*instructionId*/, QMap<QString, QVariant> const& reply)
{
    zrt::EventValues event = zrt::readEvent(*this, __FILE__, c_errorLines, reply);
    if (!event.values)
        return event.answer;
    QMap<QString, QVariant>& values = *event.values;

    auto const error = values.constFind(QStringLiteral("error"));
    if (error != values.constEnd()) {
        auto const text = m_errorTexts.constFind(zrt::toWhole(*error));
        if (text != m_errorTexts.constEnd())
            zrt::infoLine() << "ZRT screwdriver "
                            << getParameterValue(QStringLiteral("name"), QVariant()).toString()
                            << " error code " << text.key() << ": " << *text;
    }

    QVariant const none = QVariant(QStringLiteral(""));
    values.insert(QStringLiteral("serialNumber"),
                  zrt::asText(getParameterValue(QStringLiteral("serialNumber"), none)));
    // As a rule no controller's key stands behind this one.
    values.insert(values.constEnd(), QStringLiteral("validityDate"),
                  zrt::asText(getParameterValue(QStringLiteral("validityDate"), none)));
    values.insert(QStringLiteral("toolName"), zrt::asText(getParametersSection(QStringLiteral("name"))));
    return commandUpdateResult(QStringLiteral("eventData"), QVariant(values));
}
