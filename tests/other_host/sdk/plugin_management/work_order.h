#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUuid>

/// What a command of this host is linked to: a journal of everything that the command does.
class Q_DECL_EXPORT WorkOrder : public QObject
{
    Q_OBJECT

public:
    ~WorkOrder() override;

    QUuid const id = QUuid::createUuid();
    QStringList journal;
    /// The last instruction that was posted under each name.
    QMap<QString, quint64> lastPosted;
};
