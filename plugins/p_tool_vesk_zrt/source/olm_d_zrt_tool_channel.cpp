#include "olm_d_zrt_tool_channel.h"

OLM_DZrtToolChannel::OLM_DZrtToolChannel(QObject* parent) : QObjectListModelBase(parent)
{
    // Connected before anybody else can be, so that whoever hears of a change finds the index in step.
    connect(this, &QAbstractItemModel::rowsInserted, this, &OLM_DZrtToolChannel::indexById);
    connect(this, &QAbstractItemModel::rowsAboutToBeRemoved, this,
            [this](QModelIndex const&, int first, int last) { letGo(first, last); });
    connect(this, &QAbstractItemModel::rowsRemoved, this, &OLM_DZrtToolChannel::indexById);
    connect(this, &QAbstractItemModel::modelAboutToBeReset, this, [this] { letGo(0, count() - 1); });
    connect(this, &QAbstractItemModel::modelReset, this, &OLM_DZrtToolChannel::indexById);
}

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
    indexById(); // again, in case the model's own signals are blocked
    emit changed();
}

void OLM_DZrtToolChannel::indexById()
{
    // A tool has a handful of channels: indexing all of them is quick, and right whatever has happened.
    m_byId.clear();
    for (int i = count() - 1; i >= 0; --i) {
        auto const channel = at(i);
        if (!channel)
            continue;
        m_byId.insert(channel->id(), channel);
        connect(channel.data(), &DZrtToolChannel::idChanged, this, &OLM_DZrtToolChannel::notifyChanged,
                Qt::UniqueConnection);
    }
}

void OLM_DZrtToolChannel::letGo(int first, int last)
{
    for (int i = first; i <= last; ++i) {
        if (auto const channel = at(i))
            channel->disconnect(this);
    }
}
