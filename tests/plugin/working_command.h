#pragma once

#include "literals.h"
#include "logged_error.h"
#include "shipped_plugin.h"

#include <QLocale>

#include <utility>

/// A value as a text, type included: 1, true, "text", [1, 2], {key: value}, nothing; of other types they say
/// which: uint 1.
inline QString textOf(QVariant const& value)
{
    QStringList items;
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return "nothing"_s;
    case QMetaType::Bool:
    case QMetaType::Int:
        return value.toString();
    case QMetaType::QString:
        return "\"%1\""_s.arg(value.toString());
    case QMetaType::Double:
        return "double "_s + QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    case QMetaType::QVariantList:
        for (auto const& item : value.toList())
            items += textOf(item);
        return "[%1]"_s.arg(items.join(", "_s));
    case QMetaType::QVariantMap: {
        auto const map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            items += "%1: %2"_s.arg(it.key(), textOf(*it));
        return "{%1}"_s.arg(items.join(", "_s));
    }
    default:
        return "%1 %2"_s.arg(QLatin1String(value.typeName()), value.toString());
    }
}

/// An order that keeps a journal of what its command does: "setLock {lock: 1}", "withdrew setLock",
/// "doneOk = true", "dropped", "ended well" or "failed".
class JournalOrder : public RecordingOrder
{
public:
    enum Moment
    {
        Posted,
        Withdrawn,
        Result,
        Dropped,
        Finished,
    };

    /// What has come since the last call.
    QString takeJournal() { return std::exchange(m_journal, {}).join("; "_s); }

protected:
    virtual void happened(Moment /*moment*/, QString const& line) { m_journal += line; }

    quint64 instructionPosted(DInstruction const& instruction) override
    {
        quint64 const id = RecordingOrder::instructionPosted(instruction);
        happened(Posted, instruction.arguments.isEmpty()
                             ? instruction.name
                             : instruction.name + QLatin1Char(' ') + textOf(instruction.arguments));
        return id;
    }
    void instructionWithdrawn(quint64 id) override
    {
        RecordingOrder::instructionWithdrawn(id);
        for (auto const& one : qAsConst(posted)) {
            if (one.id == id)
                return happened(Withdrawn, "withdrew "_s + one.instruction.name);
        }
        happened(Withdrawn, "withdrew what was not posted"_s);
    }
    void resultUpdated(QString const& key, QVariant const& value) override
    {
        RecordingOrder::resultUpdated(key, value);
        happened(Result, "%1 = %2"_s.arg(key, textOf(value)));
    }
    void replyDropped(quint64 id) override
    {
        RecordingOrder::replyDropped(id);
        happened(Dropped, "dropped"_s);
    }
    void commandFinished(bool success, QString const& message) override
    {
        RecordingOrder::commandFinished(success, message);
        happened(Finished, success ? "ended well"_s : "failed"_s);
    }

private:
    QStringList m_journal;
};

/// A working command of the shipped plugin, made from its prototype in a plugin instance of its own, with an
/// order. Each operation returns what came of it: what was logged, the order's journal, and "refused" if the
/// command answered false. The members are in the order in which a host must let go of them, last first.
///
/// A test of a command says what the command is for. What every malformed reply does is in
/// tst_conversations.
class WorkingCommand
{
public:
    explicit WorkingCommand(QString const& name, QVariantMap const& parameters = {})
        : instance(ShippedPlugin().makeInstanceWithCommands())
    {
        auto const* const prototype = instance->commandPrototype(name);
        if (!prototype)
            qFatal("the plugin declares no such command: %s", qPrintable(name));
        command = prototype->createCommand(parameters);
    }

    QString execute()
    {
        return courseOf([this] { return order.execute(*command); });
    }

    /// Replies to the last instruction that was posted, or to the last one of this name.
    QString reply(QVariantMap const& map) { return reply(order.names().value(order.posted.size() - 1), map); }
    QString reply(QString const& instruction, QVariantMap const& map)
    {
        int const place = order.names().lastIndexOf(instruction);
        if (place < 0)
            qFatal("no such instruction was posted: %s", qPrintable(instruction));
        return courseOf([&] { return command->setReply(order.posted[place].id, map); });
    }

    QString finish(bool success = true)
    {
        return courseOf([&] { return command->finishTheCommand(success); });
    }

    DAbstractCommand& object() { return dynamic_cast<DAbstractCommand&>(*command); }

    std::unique_ptr<DAbstractPlugin> instance;
    JournalOrder order;
    QSharedPointer<ICommand> command;

private:
    template <class Operation> QString courseOf(Operation const& operation)
    {
        MessageCapture const log;
        bool const isTaken = operation();
        QStringList course;
        for (auto const& line : log.lines) {
            auto const error = LoggedError::fromText(line.text);
            if (line.type != QtDebugMsg)
                course += line.type == QtCriticalMsg && error ? error->message : line.text;
        }
        course += order.takeJournal();
        if (!isTaken)
            course += "refused"_s;
        course.removeAll(QString());
        return course.join("; "_s);
    }
};

/// A reply that the handler of every such instruction takes.
inline QVariantMap goodReply(QString const& instruction, int eventCount = 0)
{
    if (instruction == QLatin1String("listenEventsData"))
        return {{"values"_s, QVariantMap{{"eventCountNo"_s, eventCount}}}};
    return {{"doneOk"_s, true},
            {"lockStatus"_s, 1},
            {"fasteningLocked"_s, true},
            {"looseningLocked"_s, true},
            {"presetData"_s, QVariantMap{{"torque"_s, 250}}},
            {"values"_s, QVariantList{1}},
            {"statusData"_s, QVariantMap{{"done"_s, 1}}}};
}

/// The columns and rows of a test of replies: the rule, the reply, and what comes of it.
inline void addReplyColumns()
{
    QTest::addColumn<QVariantMap>("reply");
    QTest::addColumn<QString>("course");
}
inline void addReply(char const* rule, QVariantMap const& reply, QString const& course)
{
    QTest::newRow(rule) << reply << course;
}
