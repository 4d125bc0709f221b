#include <plugin_management/d_abstract_command.h>
#include <plugin_management/work_order.h>
#include <utilities/utilities.h>

namespace
{

// Multiples of 2^32: an id that is kept in an int reads as 0.
quint64 nextId()
{
    static quint64 last = 0;
    return last += Q_UINT64_C(0x1'0000'0000);
}

QString declaration(char const* kind, QString const& key, QString const& typeTag, QString const& label,
                    QVariant const& defaultValue)
{
    return QStringLiteral("%1 %2 \"%3\" %4")
        .arg(QLatin1String(kind), typeTag, label, convVariantMapToString({{key, defaultValue}}));
}

} // namespace

WorkOrder::~WorkOrder() = default;

quint64 WorkOrder::lastPosted(QString const& instruction) const
{
    quint64 last = 0;
    for (auto const& [name, instructionId] : posted) {
        if (name == instruction)
            last = instructionId;
    }
    return last;
}

DAbstractCommand::~DAbstractCommand() = default;

bool DAbstractCommand::linkWithItsOrder(QObject* order)
{
    m_order = qobject_cast<WorkOrder*>(order);
    return !m_order.isNull();
}

QUuid DAbstractCommand::getOrderId() const
{
    return m_order ? m_order->id : QUuid();
}

bool DAbstractCommand::commandExecute()
{
    return !m_order.isNull();
}

void DAbstractCommand::setReply(quint64 instructionId, QMap<QString, QVariant> const& reply)
{
    auto const found = m_waiting.find(instructionId);
    if (found == m_waiting.end()) {
        note(QStringLiteral("reply dropped"));
        return;
    }
    // A copy: the handler may withdraw its own instruction.
    auto const [name, onReply] = found->second;
    bool const isOnce = isRecurrent() == EnRecurrence::CeOnce;
    if (isOnce)
        m_waiting.erase(found);
    bool const isTaken = onReply(instructionId, reply);
    note(name + (isTaken ? QStringLiteral(": taken") : QStringLiteral(": refused")));
    m_isRefused = m_isRefused || !isTaken;
    if (isOnce && m_waiting.empty()) {
        bool success = !m_isRefused;
        commandFinish(success);
    }
}

void DAbstractCommand::finishTheCommand(bool& success)
{
    m_waiting.clear();
    commandFinish(success);
}

quint64 DAbstractCommand::addInstruction(
    QString const& target, QString const& instruction, QMap<QString, QVariant> const& arguments,
    int timeAllowance, fastdelegate::FastDelegate2<quint64, QMap<QString, QVariant> const&, bool> onReply)
{
    quint64 const id = nextId();
    m_waiting.insert({id, {instruction, std::move(onReply)}});
    if (m_order)
        m_order->posted.append({instruction, id});
    note(QStringLiteral("%1 %2 %3 %4")
             .arg(target, instruction, convVariantMapToString(arguments), QString::number(timeAllowance)));
    return id;
}

void DAbstractCommand::stopTheInstruction(quint64 instructionId)
{
    auto const found = m_waiting.find(instructionId);
    note(found == m_waiting.end() ? QStringLiteral("nothing withdrawn")
                                  : QStringLiteral("withdrawn ") + found->second.first);
    if (found != m_waiting.end())
        m_waiting.erase(found);
}

void DAbstractCommand::commandFinish(bool& success)
{
    note(success ? QStringLiteral("ended well") : QStringLiteral("ended badly"));
    emit sigCommandFinished(success);
}

bool DAbstractCommand::commandUpdateResult(QString const& key, QVariant const& value)
{
    if (!m_results.contains(key))
        return false;
    m_results.insert(key, value);
    note(QStringLiteral("result ") + convVariantMapToString({{key, value}}));
    return true;
}

QString DAbstractCommand::getParametersSection(QString const& key) const
{
    note(QStringLiteral("section ") + key);
    return m_given.value(QStringLiteral("sections")).toMap().value(key).toString();
}

QVariant DAbstractCommand::getParameterValue(QString const& key, QVariant const& defaultValue) const
{
    note(QStringLiteral("value ") + key);
    return m_given.value(key, m_defaults.value(key, defaultValue));
}

DAbstractCommand& DAbstractCommand::declareAResult(QString const& key, QString const& typeTag,
                                                   QString const& label, QVariant const& defaultValue)
{
    m_results.insert(key, defaultValue);
    m_declarations += declaration("result", key, typeTag, label, defaultValue);
    return *this;
}

DAbstractCommand& DAbstractCommand::declareAParameter(QString const& key, QString const& typeTag,
                                                      QString const& label, QVariant const& defaultValue)
{
    m_defaults.insert(key, defaultValue);
    m_declarations += declaration("parameter", key, typeTag, label, defaultValue);
    return *this;
}

void DAbstractCommand::note(QString const& line) const
{
    if (m_order)
        m_order->journal += line;
}
