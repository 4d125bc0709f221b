#include "d_zrt_tool_channel.h"

QMap<QString, DZrtToolChannel::EnChannelType> const DZrtToolChannel::c_channelTypesMap;

DZrtToolChannel::DZrtToolChannel(QObject* parent) : DObject(QStringLiteral("DZrtToolChannel"), parent) {}

DZrtToolChannel::~DZrtToolChannel() = default;

QSharedPointer<DZrtToolChannel> DZrtToolChannel::create(QVariantMap const& description)
{
    QSharedPointer<DZrtToolChannel> channel(new DZrtToolChannel(nullptr));
    channel->setId(description.value(QStringLiteral("id")).toString());
    channel->setName(description.value(QStringLiteral("name")).toString());

    QVariant const value = description.value(QStringLiteral("value"));
    if (value.type() != QVariant::List)
        return channel;
    auto const attributes = value.toList();
    for (auto const& entry : attributes) {
        QVariantMap const attribute = entry.toMap();
        QString const key = attribute.value(QStringLiteral("id")).toString();
        QVariant const content = attribute.value(QStringLiteral("value"));
        channel->m_attributes.insert(key, content);
        if (key == QLatin1String("type"))
            channel->setType(c_channelTypesMap.value(content.toString(), CeCtUnknown));
    }
    return channel;
}

void DZrtToolChannel::setId(QString const& id)
{
    if (m_id == id)
        return;
    m_id = id;
    emit idChanged();
}

void DZrtToolChannel::setName(QString const& name)
{
    if (m_name == name)
        return;
    m_name = name;
    emit nameChanged();
}

void DZrtToolChannel::setLabel(QString const& label)
{
    if (m_label == label)
        return;
    m_label = label;
    emit labelChanged();
}

void DZrtToolChannel::setType(EnChannelType type)
{
    if (m_type == type)
        return;
    m_type = type;
    emit typeChanged();
}

bool DZrtToolChannel::setValue(QVariant const& /*value*/)
{
    return true;
}
