#pragma once

#include <plugin_management/d_order.h>

#include <QList>
#include <QPair>
#include <QString>
#include <QVariant>

/// An order that carries nothing anywhere: it writes down what its command does,
/// and the test replies by hand.
class RecordingOrder : public DOrder
{
public:
    explicit RecordingOrder(quint64 id = 1) : DOrder(id) {}

    struct Posted
    {
        quint64 id = 0;
        DInstruction instruction;
    };
    struct Finish
    {
        bool success = false;
        QString message;
    };

    QList<Posted> posted;
    QList<quint64> withdrawn;
    QList<int> withdrawnBehind; ///< of each, how many instructions had been posted by then
    QList<QPair<QString, QVariant>> results;
    QList<quint64> dropped;
    QList<Finish> finishes;

    /// The names of the posted instructions, in order.
    QStringList names() const
    {
        QStringList list;
        for (auto const& one : posted)
            list += one.instruction.name;
        return list;
    }

protected:
    quint64 instructionPosted(DInstruction const& instruction) override
    {
        posted.append({++m_lastId, instruction});
        return m_lastId;
    }
    void instructionWithdrawn(quint64 id) override
    {
        withdrawn.append(id);
        withdrawnBehind.append(posted.size());
    }
    void resultUpdated(QString const& key, QVariant const& value) override { results.append({key, value}); }
    void replyDropped(quint64 id) override { dropped.append(id); }
    void commandFinished(bool success, QString const& message) override
    {
        finishes.append({success, message});
    }

private:
    quint64 m_lastId = 100; // so that an id is never mistaken for an index or a count
};
