#pragma once

#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <QVector>

/// What a command of this host is linked to: a journal of everything that the command does.
class Q_DECL_EXPORT WorkOrder : public QObject
{
    Q_OBJECT

public:
    ~WorkOrder() override;

    /// The id of the last instruction that was posted under this name; 0 if there is none.
    quint64 lastPosted(QString const& instruction) const;

    QUuid const id = QUuid::createUuid();
    QStringList journal;
    /// The instructions that were posted, by name and id.
    QVector<QPair<QString, quint64>> posted;
};
