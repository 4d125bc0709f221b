#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_command_p.h>

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
    , d(new DAbstractCommandPrivate(*this, commandName, stopCommandName, parameters))
{}

DAbstractCommand::~DAbstractCommand() = default;

void DAbstractCommand::linkWithItsOrder(QObject* order)
{
    d->link(order);
}

QString DAbstractCommand::commandName() const
{
    return d->commandName;
}

QString DAbstractCommand::stopCommandName() const
{
    return d->stopCommandName;
}

quint64 DAbstractCommand::getOrderId() const
{
    auto const* const host = d->order();
    return host ? host->id() : 0;
}

quint64 DAbstractCommand::getParameterOrderId() const
{
    return d->parameters.value(QStringLiteral("orderId")).toULongLong();
}

bool DAbstractCommand::isRecurrent() const
{
    return !d->stopCommandName.isEmpty();
}

bool DAbstractCommand::isValid() const
{
    return !d->commandName.isEmpty();
}

QString DAbstractCommand::description() const
{
    return d->description;
}

QString DAbstractCommand::fullDescription() const
{
    auto const line = [](QString const& kind, DDeclaration const& declared) {
        return QStringLiteral("%1 \"%2\" (%3): %4").arg(kind, declared.key, declared.typeTag, declared.label);
    };
    QStringList lines{d->description};
    for (auto const& parameter : qAsConst(d->arguments.parameters))
        lines += line(QStringLiteral("parameter"), parameter);
    for (auto const& result : qAsConst(d->arguments.results))
        lines += line(QStringLiteral("result"), result);
    return lines.join(QLatin1Char('\n'));
}

DCommandArguments DAbstractCommand::commandArguments() const
{
    return d->arguments;
}

bool DAbstractCommand::commandExecute()
{
    if (!d->linked || d->refuses("commandExecute()"))
        return false;
    // Executed anew while it runs, it is still the same order, and what failed has failed.
    if (!d->isRunning)
        d->failure.clear();
    d->isRunning = true;
    return true;
}

bool DAbstractCommand::setReply(quint64 instructionId, QMap<QString, QVariant> const& reply)
{
    return d->deliver(instructionId, reply);
}

bool DAbstractCommand::finishTheCommand(bool& success)
{
    if (d->refuses("finishTheCommand()")) {
        success = false;
        return false;
    }
    d->withdrawAll();
    return commandFinish(success);
}

QVariant DAbstractCommand::result(QString const& key) const
{
    return d->results.value(key);
}

quint64 DAbstractCommand::addInstruction(QString const& target, QString const& instruction,
                                         QMap<QString, QVariant> const& arguments, int timeAllowance,
                                         OnReply onReply)
{
    return d->post({target, instruction, arguments, timeAllowance}, onReply);
}

void DAbstractCommand::setDescription(QString const& description)
{
    d->description = description;
}

void DAbstractCommand::declareAParameter(QString const& key, QString const& typeTag, QString const& label,
                                         QVariant const& defaultValue)
{
    d->arguments.parameters.append({key, typeTag, label, defaultValue});
}

void DAbstractCommand::declareAResult(QString const& key, QString const& typeTag, QString const& label,
                                      QVariant const& defaultValue)
{
    d->arguments.results.append({key, typeTag, label, defaultValue});
    d->results.insert(key, defaultValue);
}

QVariant DAbstractCommand::getParameterValue(QString const& key, QVariant const& defaultValue) const
{
    auto const given = d->parameters.constFind(key);
    if (given != d->parameters.constEnd())
        return *given;
    auto const& declared = d->arguments.parameters;
    auto const it = std::find_if(declared.cbegin(), declared.cend(),
                                 [&key](auto const& parameter) { return parameter.key == key; });
    return it == declared.cend() ? defaultValue : it->defaultValue;
}

QVariant DAbstractCommand::getParametersSection(QString const& key)
{
    return d->parameters.value(key);
}

bool DAbstractCommand::commandUpdateResult(QString const& key, QVariant const& value)
{
    return d->publish(key, value);
}

bool DAbstractCommand::commandFinish(bool& success)
{
    if (!d->isRunning || d->refuses("commandFinish()")) {
        success = false;
        return false;
    }
    d->end(success);
    return true;
}

void DAbstractCommand::stopTheInstruction(quint64 instructionId)
{
    d->withdraw(instructionId);
    // It may have been the last one that a one-shot command waited for.
    d->endIfDone();
}

DAbstractCommandPrivate::DAbstractCommandPrivate(DAbstractCommand& command, QString const& name,
                                                 QString const& stopName,
                                                 QMap<QString, QVariant> const& given)
    : q(command)
    , commandName(name)
    , stopCommandName(stopName)
    , parameters(given)
{}

DAbstractCommandPrivate::~DAbstractCommandPrivate()
{
    // Whoever called it would come back to an object that is gone.
    if (phase != Idle)
        qFatal("The command \"%s\" was destroyed in the middle of its work: from within a handler, or from "
               "within its order's instructionPosted(), instructionWithdrawn() or resultUpdated()",
               qPrintable(commandName));
    letGoOfOrder();
}

bool DAbstractCommandPrivate::execute(ICommand& command)
{
    // The order still serves the command that refused to let it go.
    if (static_cast<ICommand*>(&q) != &command || refuses("execute()"))
        return false;
    bool accepted = false;
    {
        InPhase const working(*this, Working);
        accepted = command.commandExecute();
        if (!accepted && isRunning)
            fail(QStringLiteral("the command refused to start"));
    }
    endIfDone();
    return accepted;
}

void DAbstractCommandPrivate::allowancePassed(quint64 instructionId)
{
    auto const it = pending.find(instructionId);
    if (refuses("allowancePassed()") || it == pending.end())
        return;
    it->isOverdue = true;
    if (!isRunning)
        withdraw(instructionId);
    else if (!q.isRecurrent())
        fail(QStringLiteral("no reply to \"%1\" within %2 ms").arg(it->name).arg(it->timeAllowance));
}

void DAbstractCommandPrivate::instructionFailed(quint64 instructionId, QString const& reason)
{
    auto const it = pending.find(instructionId);
    if (refuses("instructionFailed()") || it == pending.end())
        return;
    QString const name = it->name;
    pending.erase(it);
    if (isRunning && !q.isRecurrent())
        fail(QStringLiteral("\"%1\": %2").arg(name, reason));
}

bool DAbstractCommandPrivate::awaitsReplies() const
{
    return std::any_of(pending.cbegin(), pending.cend(), [](auto const& one) { return !one.isAnswered; });
}

void DAbstractCommandPrivate::link(QObject* next)
{
    auto* const nextOrder = qobject_cast<DOrder*>(next);
    if (nextOrder && nextOrder->m_command == this)
        return;
    constexpr char const* operation = "linkWithItsOrder()";
    if (refuses(operation) || (nextOrder && nextOrder->m_command && nextOrder->m_command->refuses(operation)))
        return;
    letGoOfOrder();
    linked = next;
    if (nextOrder)
        nextOrder->m_command = this;
}

void DAbstractCommandPrivate::letGoOfOrder()
{
    if (auto* const former = order(); former && former->m_command == this)
        former->m_command = nullptr;
}

quint64 DAbstractCommandPrivate::post(DInstruction const& instruction, OnReply const& onReply)
{
    // A command that goes to work all the same; it gets an id to which no reply comes.
    if (refuses("addInstruction()"))
        return nextOwnId();
    quint64 id = 0;
    if (auto* const host = order()) {
        InPhase const handingOver(*this, HandingOver);
        id = host->instructionPosted(instruction);
    } else {
        id = nextOwnId();
    }
    pending.insert(id, {instruction.name, instruction.timeAllowance, onReply});
    return id;
}

bool DAbstractCommandPrivate::deliver(quint64 instructionId, QMap<QString, QVariant> const& reply)
{
    auto const it = pending.find(instructionId);
    if (refuses("setReply()") || it == pending.end()) {
        if (auto* const host = order())
            host->replyDropped(instructionId);
        return false;
    }
    bool accepted = false;
    {
        InPhase const working(*this, Working);
        // The handler may post or withdraw instructions, so nothing of the table is held across the call.
        OnReply const onReply = it->onReply;
        QString const name = it->name;
        if (q.isRecurrent() && isRunning)
            it->isAnswered = true;
        else
            pending.erase(it);
        accepted = onReply.empty() || onReply(instructionId, reply);
        if (!accepted)
            noteFailure(QStringLiteral("the reply to \"%1\" was not accepted").arg(name));
    }
    endIfDone();
    return accepted;
}

bool DAbstractCommandPrivate::publish(QString const& key, QVariant const& value)
{
    auto const result = results.find(key);
    if (result == results.end())
        return false;
    *result = value;
    if (auto* const host = order()) {
        InPhase const publishing(*this, Publishing);
        host->resultUpdated(key, value);
    }
    return true;
}

void DAbstractCommandPrivate::withdraw(quint64 instructionId)
{
    if (pending.remove(instructionId) == 0)
        return;
    if (auto* const host = order()) {
        InPhase const handingOver(*this, HandingOver);
        host->instructionWithdrawn(instructionId);
    }
}

void DAbstractCommandPrivate::withdrawAll()
{
    auto const ids = pending.keys();
    for (quint64 const id : ids)
        withdraw(id);
}

void DAbstractCommandPrivate::end(bool success)
{
    isRunning = false;
    QList<quint64> overdue;
    for (auto it = pending.begin(); it != pending.end();) {
        if (it->isOverdue && !it->isAnswered)
            overdue += it.key();
        it = it->isAnswered ? pending.erase(it) : std::next(it);
    }
    // Who hears the signal may delete the order, and then the command.
    QPointer<QObject> const linkedBefore = linked;
    QPointer<DAbstractCommand> const self = overdue.isEmpty() ? nullptr : &q;
    QString const message = success ? QString() : failure;
    emit q.sigCommandFinished(success);
    if (auto* const host = qobject_cast<DOrder*>(linkedBefore.data()))
        host->commandFinished(success, message);
    // What was long in coming while it listened is not waited for any longer.
    for (quint64 const id : qAsConst(overdue)) {
        if (self)
            withdraw(id);
    }
}

void DAbstractCommandPrivate::endIfDone()
{
    if (phase < Working && isRunning && !q.isRecurrent() && pending.isEmpty())
        end(failure.isEmpty());
}

bool DAbstractCommandPrivate::logRefusal(char const* operation) const
{
    qCritical("The command \"%s\" refused %s: it came from within its order's instructionPosted() or "
              "instructionWithdrawn()",
              qPrintable(commandName), operation);
    return true;
}

quint64 DAbstractCommandPrivate::nextOwnId()
{
    do
        ++lastOwnId;
    while (pending.contains(lastOwnId));
    return lastOwnId;
}

void DAbstractCommandPrivate::noteFailure(QString const& message)
{
    // The first failure is the one to tell; those that follow are often its consequences.
    if (failure.isEmpty())
        failure = message;
}

void DAbstractCommandPrivate::fail(QString const& message)
{
    noteFailure(message);
    withdrawAll();
    end(false);
}
