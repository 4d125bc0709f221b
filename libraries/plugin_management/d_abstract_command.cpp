#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_order.h>

#include <QStringList>

#include <algorithm>
#include <iterator>

DAbstractCommand::DAbstractCommand(QString const& commandName, QMap<QString, QVariant> const& parameters,
                                   QObject* parent)
    : DAbstractCommand(commandName, QString(), parameters, parent)
{}

DAbstractCommand::DAbstractCommand(QString const& commandName, QString const& stopCommandName,
                                   QMap<QString, QVariant> const& parameters, QObject* parent)
    : QObject(parent)
    , m_commandName(commandName)
    , m_stopCommandName(stopCommandName)
    , m_parameters(parameters)
{}

DAbstractCommand::~DAbstractCommand()
{
    // Whoever called it would come back to an object that is gone.
    if (m_busy > 0 || m_handovers > 0 || m_publishing > 0)
        qFatal("The command \"%s\" was destroyed in the middle of its work: from within a handler, or from "
               "within its order's instructionPosted(), instructionWithdrawn() or resultUpdated()",
               qPrintable(m_commandName));
}

void DAbstractCommand::linkWithItsOrder(QObject* order)
{
    auto* const next = qobject_cast<DOrder*>(order);
    if (next && next->m_command == this)
        return;
    if (refuses("linkWithItsOrder()") || (next && next->isTaken("linkWithItsOrder()")))
        return;
    if (auto* const former = this->order(); former && former->m_command == this)
        former->m_command = nullptr;
    m_order = order;
    if (next)
        next->m_command = this;
}

QString DAbstractCommand::commandName() const
{
    return m_commandName;
}

QString DAbstractCommand::stopCommandName() const
{
    return m_stopCommandName;
}

quint64 DAbstractCommand::getOrderId() const
{
    auto const* const host = order();
    return host ? host->id() : 0;
}

quint64 DAbstractCommand::getParameterOrderId() const
{
    return m_parameters.value(QStringLiteral("orderId")).toULongLong();
}

bool DAbstractCommand::isRecurrent() const
{
    return !m_stopCommandName.isEmpty();
}

bool DAbstractCommand::isValid() const
{
    return !m_commandName.isEmpty();
}

QString DAbstractCommand::description() const
{
    return m_description;
}

QString DAbstractCommand::fullDescription() const
{
    auto const line = [](QString const& kind, DDeclaration const& declared) {
        return QStringLiteral("%1 \"%2\" (%3): %4").arg(kind, declared.key, declared.typeTag, declared.label);
    };
    QStringList lines{m_description};
    for (auto const& parameter : m_arguments.parameters)
        lines += line(QStringLiteral("parameter"), parameter);
    for (auto const& result : m_arguments.results)
        lines += line(QStringLiteral("result"), result);
    return lines.join(QLatin1Char('\n'));
}

DCommandArguments DAbstractCommand::commandArguments() const
{
    return m_arguments;
}

bool DAbstractCommand::commandExecute()
{
    if (!m_order || refuses("commandExecute()"))
        return false;
    // Executed anew while it runs, it is still the same order, and what failed has failed.
    if (!m_isRunning)
        m_failure.clear();
    m_isRunning = true;
    return true;
}

bool DAbstractCommand::setReply(quint64 instructionId, QMap<QString, QVariant> const& reply)
{
    auto const it = m_pending.find(instructionId);
    if (refuses("setReply()") || it == m_pending.end()) {
        if (auto* const host = order())
            host->replyDropped(instructionId);
        return false;
    }
    Busy const busy(*this);
    // The handler may post or withdraw instructions, so nothing of the table is held across the call.
    OnReply const onReply = it->onReply;
    QString const name = it->name;
    if (isRecurrent() && m_isRunning)
        it->isAnswered = true;
    else
        m_pending.erase(it);
    bool const accepted = onReply.empty() || onReply(instructionId, reply);
    if (!accepted)
        noteFailure(QStringLiteral("the reply to \"%1\" was not accepted").arg(name));
    return accepted;
}

bool DAbstractCommand::finishTheCommand(bool& success)
{
    if (refuses("finishTheCommand()")) {
        success = false;
        return false;
    }
    withdrawAll();
    return commandFinish(success);
}

QVariant DAbstractCommand::result(QString const& key) const
{
    return m_results.value(key);
}

quint64 DAbstractCommand::addInstruction(
    QString const& target, QString const& instruction, QMap<QString, QVariant> const& arguments,
    int timeAllowance, fastdelegate::FastDelegate2<quint64, QMap<QString, QVariant> const&, bool> onReply)
{
    // A command that goes to work all the same; it gets an id to which no reply comes.
    if (refuses("addInstruction()"))
        return nextOwnId();
    quint64 id = 0;
    if (auto* const host = order()) {
        Count const handover(m_handovers);
        id = host->instructionPosted({target, instruction, arguments, timeAllowance});
    } else {
        id = nextOwnId();
    }
    m_pending.insert(id, {instruction, timeAllowance, onReply, false});
    return id;
}

void DAbstractCommand::setDescription(QString const& description)
{
    m_description = description;
}

void DAbstractCommand::declareAParameter(QString const& key, QString const& typeTag, QString const& label,
                                         QVariant const& defaultValue)
{
    m_arguments.parameters.append({key, typeTag, label, defaultValue});
}

void DAbstractCommand::declareAResult(QString const& key, QString const& typeTag, QString const& label,
                                      QVariant const& defaultValue)
{
    m_arguments.results.append({key, typeTag, label, defaultValue});
    m_results.insert(key, defaultValue);
}

QVariant DAbstractCommand::getParameterValue(QString const& key, QVariant const& defaultValue) const
{
    auto const given = m_parameters.constFind(key);
    if (given != m_parameters.constEnd())
        return *given;
    auto const& declared = m_arguments.parameters;
    auto const it = std::find_if(declared.cbegin(), declared.cend(),
                                 [&key](auto const& parameter) { return parameter.key == key; });
    return it == declared.cend() ? defaultValue : it->defaultValue;
}

QVariant DAbstractCommand::getParametersSection(QString const& key)
{
    return m_parameters.value(key);
}

bool DAbstractCommand::commandUpdateResult(QString const& key, QVariant const& value)
{
    auto const result = m_results.find(key);
    if (result == m_results.end())
        return false;
    *result = value;
    if (auto* const host = order()) {
        Count const publishing(m_publishing);
        host->resultUpdated(key, value);
    }
    return true;
}

bool DAbstractCommand::commandFinish(bool& success)
{
    if (!m_isRunning || refuses("commandFinish()")) {
        success = false;
        return false;
    }
    end(success);
    return true;
}

void DAbstractCommand::stopTheInstruction(quint64 instructionId)
{
    // It may have been the last one that a one-shot command waited for.
    Busy const busy(*this);
    withdraw(instructionId);
}

DAbstractCommand::Busy::Busy(DAbstractCommand& command) : m_command(command)
{
    ++m_command.m_busy;
}

DAbstractCommand::Busy::~Busy()
{
    if (--m_command.m_busy == 0 && m_command.m_isRunning && !m_command.isRecurrent()
        && m_command.m_pending.isEmpty())
        m_command.end(m_command.m_failure.isEmpty());
}

bool DAbstractCommand::tellRefusal(char const* operation) const
{
    qCritical("The command \"%s\" refused %s: it came from within its order's instructionPosted() or "
              "instructionWithdrawn()",
              qPrintable(m_commandName), operation);
    return true;
}

quint64 DAbstractCommand::nextOwnId()
{
    do
        ++m_lastOwnId;
    while (m_pending.contains(m_lastOwnId));
    return m_lastOwnId;
}

DOrder* DAbstractCommand::order() const
{
    return qobject_cast<DOrder*>(m_order.data());
}

bool DAbstractCommand::awaitsReplies() const
{
    return std::any_of(m_pending.cbegin(), m_pending.cend(),
                       [](auto const& pending) { return !pending.isAnswered; });
}

void DAbstractCommand::allowancePassed(quint64 instructionId)
{
    auto const it = m_pending.find(instructionId);
    if (refuses("allowancePassed()") || it == m_pending.end())
        return;
    it->isOverdue = true;
    if (!m_isRunning)
        withdraw(instructionId);
    else if (!isRecurrent())
        fail(QStringLiteral("no reply to \"%1\" within %2 ms").arg(it->name).arg(it->timeAllowance));
}

void DAbstractCommand::instructionFailed(quint64 instructionId, QString const& reason)
{
    auto const it = m_pending.find(instructionId);
    if (refuses("instructionFailed()") || it == m_pending.end())
        return;
    QString const name = it->name;
    m_pending.erase(it);
    if (m_isRunning && !isRecurrent())
        fail(QStringLiteral("\"%1\": %2").arg(name, reason));
}

void DAbstractCommand::noteFailure(QString const& message)
{
    // The first failure is the one to tell; those that follow are often its consequences.
    if (m_failure.isEmpty())
        m_failure = message;
}

void DAbstractCommand::fail(QString const& message)
{
    noteFailure(message);
    withdrawAll();
    end(false);
}

void DAbstractCommand::withdraw(quint64 instructionId)
{
    if (m_pending.remove(instructionId) == 0)
        return;
    if (auto* const host = order()) {
        Count const handover(m_handovers);
        host->instructionWithdrawn(instructionId);
    }
}

void DAbstractCommand::withdrawAll()
{
    auto const ids = m_pending.keys();
    for (quint64 const id : ids)
        withdraw(id);
}

void DAbstractCommand::end(bool success)
{
    m_isRunning = false;
    QList<quint64> overdue;
    for (auto it = m_pending.begin(); it != m_pending.end();) {
        if (it->isOverdue && !it->isAnswered)
            overdue += it.key();
        it = it->isAnswered ? m_pending.erase(it) : std::next(it);
    }
    // Who hears the signal may delete the order, and then the command.
    QPointer<QObject> const order = m_order;
    QPointer<DAbstractCommand> const self = overdue.isEmpty() ? nullptr : this;
    QString const message = success ? QString() : m_failure;
    emit sigCommandFinished(success);
    if (auto* const host = qobject_cast<DOrder*>(order.data()))
        host->commandFinished(success, message);
    // What was long in coming while it listened is not waited for any longer.
    for (quint64 const id : qAsConst(overdue)) {
        if (self)
            withdraw(id);
    }
}
