#pragma once

#include <fast_delegate/fast_delegate.h>
#include <plugin_management/i_command.h>

#include <QObject>
#include <QPointer>

#include <map>

class WorkOrder;

/// The contract's virtual operations stand in its order, above; all else stands as this host likes it.
class Q_DECL_EXPORT DAbstractCommand : public QObject, public ICommand
{
    Q_OBJECT

public:
    DAbstractCommand(QString const& commandName, QMap<QString, QVariant> const& parameters, QObject* parent)
        : DAbstractCommand(commandName, QString(), parameters, parent)
    {}
    DAbstractCommand(QString const& commandName, QString const& stopCommandName,
                     QMap<QString, QVariant> const& parameters, QObject* parent)
        : QObject(parent)
        , m_given(parameters)
        , m_stopName(stopCommandName)
        , m_name(commandName)
    {}
    ~DAbstractCommand() override;

    bool linkWithItsOrder(QObject* order) override;
    QString commandName() const override { return m_name; }
    QString stopCommandName() const override { return m_stopName; }
    QUuid getOrderId() const override;
    QVariant getParameterOrderId() const override { return m_given.value(QStringLiteral("order")); }
    EnRecurrence isRecurrent() const override
    {
        return m_stopName.isEmpty() ? EnRecurrence::CeOnce : EnRecurrence::CeUntilStopped;
    }
    /// How much is wrong with the command.
    int isValid() const override { return m_name.isEmpty() ? 1 : 0; }
    QString const& description() const override { return m_description; }
    QByteArray fullDescription() const override { return m_description.toUtf8(); }
    /// A line for each declaration: `parameter ui16 "Locking state" {locking: int 2}`.
    QStringList commandArguments() const override { return m_declarations; }
    bool commandExecute() override;
    void setReply(quint64 instructionId, QMap<QString, QVariant> const& reply) override;
    void finishTheCommand(bool& success) override;
signals:
    void sigCommandFinished(bool success) override;

public:
    virtual quint64
    addInstruction(QString const& target, QString const& instruction,
                   QMap<QString, QVariant> const& arguments, int timeAllowance,
                   fastdelegate::FastDelegate2<quint64, QMap<QString, QVariant> const&, bool> onReply);

    void stopTheInstruction(quint64 instructionId);
    void commandFinish(bool& success);
    bool commandUpdateResult(QString const& key, QVariant const& value);
    /// As a string, from the map under "sections" in the order's parameters.
    QString getParametersSection(QString const& key) const;
    /// From the order's parameters themselves, else the declared default.
    QVariant getParameterValue(QString const& key, QVariant const& defaultValue) const;

    // Each answers with the command, so that one can be called behind the other.
    DAbstractCommand& declareAResult(QString const& key, QString const& typeTag, QString const& label,
                                     QVariant const& defaultValue);
    DAbstractCommand& declareAParameter(QString const& key, QString const& typeTag, QString const& label,
                                        QVariant const& defaultValue);
    DAbstractCommand& setDescription(QString const& description)
    {
        m_description = description;
        return *this;
    }

private:
    using OnReply = fastdelegate::FastDelegate2<quint64, QMap<QString, QVariant> const&, bool>;

    void note(QString const& line) const;

    std::map<quint64, std::pair<QString, OnReply>> m_waiting;
    bool m_isRefused = false;
    QPointer<WorkOrder> m_order;
    QStringList m_declarations;
    QMap<QString, QVariant> m_results;
    QMap<QString, QVariant> m_defaults;
    QMap<QString, QVariant> m_given;
    QString m_description;
    QString m_stopName;
    QString m_name;
};
