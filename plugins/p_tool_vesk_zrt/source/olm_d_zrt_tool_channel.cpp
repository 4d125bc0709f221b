#include "olm_d_zrt_tool_channel.h"

OLM_DZrtToolChannel::OLM_DZrtToolChannel(QObject* parent) : QObjectListModelBase(parent) {}

OLM_DZrtToolChannel::~OLM_DZrtToolChannel() = default;

QVariant OLM_DZrtToolChannel::header(int section) const
{
    return headerData(section, Qt::Horizontal, Qt::DisplayRole);
}

QVariant OLM_DZrtToolChannel::item(int i) const
{
    return i >= 0 && i < count() ? QVariant::fromValue(at(i).data()) : QVariant();
}

void OLM_DZrtToolChannel::notifyChanged()
{
    // From the last to the first, so that the first of several with the same id stays.
    m_byId.clear();
    for (int i = count() - 1; i >= 0; --i) {
        if (auto const channel = at(i))
            m_byId.insert(channel->id(), channel);
    }
    emit changed();
}
