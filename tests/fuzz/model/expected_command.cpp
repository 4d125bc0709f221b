#include "expected_command.h"

#include "literals.h"

#include <algorithm>

std::map<QString, ExpectedCommand::Maker>& ExpectedCommand::all()
{
    static std::map<QString, Maker> makers;
    return makers;
}

QString ExpectedCommand::complaint(QStringList const& names)
{
    QStringList missing;
    for (auto const& name : names) {
        if (all().count(name) == 0)
            missing += name;
    }
    QStringList left;
    for (auto const& one : all()) {
        if (!names.contains(one.first))
            left += one.first;
    }
    QString const file = "tests/fuzz/model/expected_commands.cpp"_s;
    QStringList complaints;
    if (!missing.isEmpty())
        complaints += "the model lacks \"%1\": add a class to %2 that says what it posts and what it "
                      "does with each reply"_s.arg(missing.join("\", \""_s), file);
    if (!left.isEmpty())
        complaints += "the catalogue lacks \"%1\", which is in %2"_s.arg(left.join("\", \""_s), file);
    return complaints.join("; "_s);
}

std::unique_ptr<ExpectedCommand> ExpectedCommand::make(QString const& name, Declared const& declared,
                                                       Map const& parameters, quint64& lastId)
{
    auto const found = all().find(name);
    if (found == all().end())
        return nullptr;
    return found->second.make({QString::fromLatin1(found->second.file), declared, parameters, lastId});
}

QList<quint64> ExpectedCommand::awaited() const
{
    QList<quint64> ids;
    for (auto const& one : m_pending) {
        if (!one.second.isAnswered)
            ids += one.first;
    }
    return ids;
}

Effects ExpectedCommand::execute()
{
    m_effects = {};
    if (m_isLinked) {
        // Until it has ended it is one order, however often it is executed.
        m_hasFailed = m_isRunning && m_hasFailed;
        m_isRunning = true;
    }
    m_effects.answer = m_isLinked || startsWithoutOrder();
    if (m_effects.answer)
        start();
    return m_effects;
}

Effects ExpectedCommand::reply(quint64 id, Map const& reply)
{
    m_effects = {};
    auto const found = m_pending.find(id);
    if (found == m_pending.end()) {
        if (m_isLinked)
            m_effects.addDropped(id);
        return m_effects;
    }
    Rule const rule = found->second.rule;
    if (m_isRunning && !isOneShot())
        found->second.isAnswered = true;
    else
        m_pending.erase(found);
    bool const answer = rule(reply);
    m_effects.answer = answer;
    m_hasFailed = m_hasFailed || !answer;
    endIfDone();
    return m_effects;
}

Effects ExpectedCommand::finish(bool success)
{
    m_effects = {};
    wrapUp();
    m_effects.answer = m_isRunning;
    if (m_isRunning)
        end(success);
    return m_effects;
}

Effects ExpectedCommand::allowancePassed(quint64 id)
{
    m_effects = {};
    auto const found = m_pending.find(id);
    if (!m_isLinked || found == m_pending.end())
        return m_effects;
    found->second.isOverdue = true;
    if (!m_isRunning)
        withdraw(id);
    else if (isOneShot())
        fail();
    return m_effects;
}

Effects ExpectedCommand::instructionFailed(quint64 id)
{
    m_effects = {};
    if (!m_isLinked || m_pending.erase(id) == 0)
        return m_effects;
    if (m_isRunning && isOneShot())
        fail();
    return m_effects;
}

QVariant ExpectedCommand::parameter(char const* key) const
{
    QString const name = QString::fromLatin1(key);
    return m_given.parameters.value(name, m_given.declared.defaults.value(name));
}

QString ExpectedCommand::text(char const* key) const
{
    return m_given.parameters.value(QString::fromLatin1(key)).toString();
}

quint64 ExpectedCommand::post(char const* name, Map const& arguments, Rule const& rule)
{
    Post const one{m_isLinked ? ++m_given.lastId : ++m_lastOwnId, QString::fromLatin1(name), arguments};
    m_pending[one.id] = {rule, false, false};
    if (m_isLinked)
        m_effects.add(one);
    return one.id;
}

void ExpectedCommand::withdraw(quint64 id)
{
    if (m_pending.erase(id) != 0 && m_isLinked)
        m_effects.addWithdrawn(id);
}

bool ExpectedCommand::update(char const* key, QVariant const& value)
{
    QString const name = QString::fromLatin1(key);
    m_results[name] = value;
    if (m_isLinked)
        m_effects.addResult(name, value);
    return true;
}

bool ExpectedCommand::refuse(int line, QString const& message)
{
    m_effects.add(LoggedError{m_given.file, line, message, {}});
    return false;
}

void ExpectedCommand::withdrawAll()
{
    while (!m_pending.empty())
        withdraw(m_pending.begin()->first);
}

void ExpectedCommand::fail()
{
    withdrawAll();
    end(false);
}

void ExpectedCommand::end(bool success)
{
    m_isRunning = false;
    QList<quint64> overdue;
    for (auto it = m_pending.begin(); it != m_pending.end();) {
        if (it->second.isAnswered) {
            it = m_pending.erase(it);
            continue;
        }
        if (it->second.isOverdue)
            overdue += it->first;
        ++it;
    }
    m_effects.addEnd(success);
    if (m_isLinked)
        m_effects.addToldEnd(success);
    // What it still waits for is answered, unless that took too long before.
    for (quint64 const id : qAsConst(overdue))
        withdraw(id);
}

void ExpectedCommand::endIfDone()
{
    if (m_isRunning && isOneShot() && m_pending.empty())
        end(!m_hasFailed);
}
