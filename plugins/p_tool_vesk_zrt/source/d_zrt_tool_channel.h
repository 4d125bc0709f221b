#pragma once

#include <utilities/d_object.h>

#include <QMap>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

/// One status channel of the screwdriver, as QML shows it (type "DZrtToolChannel" of module
/// "PlgLibToolZrt" 1.0): what the device calls it, what the operator calls it, and how it is read.
///
/// Lives on the GUI thread. A channel in a list belongs to the shared pointers that hold it.
class Q_DECL_EXPORT DZrtToolChannel : public DObject
{
    Q_OBJECT
    Q_PROPERTY(QString id READ id NOTIFY idChanged FINAL)
    Q_PROPERTY(QString name READ name NOTIFY nameChanged FINAL)
    Q_PROPERTY(QString label READ label NOTIFY labelChanged FINAL)
    Q_PROPERTY(QVariant value READ value NOTIFY valueChanged FINAL)
    Q_PROPERTY(EnChannelType type READ type NOTIFY typeChanged FINAL)

public:
    enum EnChannelType
    {
        CeCtUnknown,
        CeCtString,
        CeCtBool,
        _CeCtNbr ///< how many there are  NOLINT(bugprone-reserved-identifier): pages know it by this name
    };
    Q_ENUM(EnChannelType)

    /// What a description calls a type. Descriptions name none yet: the table is empty.
    static QMap<QString, EnChannelType> const c_channelTypesMap;

    explicit DZrtToolChannel(QObject* parent = nullptr);
    ~DZrtToolChannel() override;

    /// Makes a channel from its description:
    /// - "id", "name": texts; empty if absent;
    /// - "value": a list of attributes, each a map of "id" (text) and "value". The attribute "type" names the
    ///   channel's type as c_channelTypesMap has it. Anything but a list is ignored.
    ///
    /// Label, read command and value are not part of a description.
    static QSharedPointer<DZrtToolChannel> create(QVariantMap const& description);

    /// What the device knows the channel by.
    QString id() const { return m_id; }
    void setId(QString const& id);
    QString name() const { return m_name; }
    void setName(QString const& name);
    /// What the operator reads.
    QString label() const { return m_label; }
    void setLabel(QString const& label);
    EnChannelType type() const { return m_type; }
    void setType(EnChannelType type);
    /// The device command that reads the channel.
    QString readCommand() const { return m_readCommand; }
    void setReadCommand(QString const& command) { m_readCommand = command; }

    /// Invalid: a channel shows no value of its own.
    QVariant value() const { return m_value; }
    /// For what the device answered: stores nothing, and answers true.
    bool setValue(QVariant const& value);

    /// The attributes of the description by their ids, "type" among them.
    QVariantMap attributes() const { return m_attributes; }

signals:
    void idChanged();
    void nameChanged();
    void labelChanged();
    void valueChanged();
    void typeChanged();
    /// For pages: somebody wants the channel with this id switched.
    void sigSwitchChannelValue(QString const& channelId);

private:
    QString m_id;
    QString m_name;
    QString m_label;
    QString m_readCommand;
    QVariant m_value;
    EnChannelType m_type = CeCtUnknown;
    QMap<QString, QVariant> m_attributes;
};
