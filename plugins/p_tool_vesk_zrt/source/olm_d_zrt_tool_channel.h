#pragma once

#include "d_zrt_tool_channel.h"
#include "q_object_list_model_base.h"

#include <QMap>

/// The status channels of a tool as a model for QML, and by the id under which the device knows them.
class Q_DECL_EXPORT OLM_DZrtToolChannel : public __qobjectsqmllist::QObjectListModelBase<DZrtToolChannel>
{
    Q_OBJECT
    Q_PROPERTY(int length READ count NOTIFY changed)
    Q_PROPERTY(int isEmpty READ isEmpty NOTIFY changed)

public:
    explicit OLM_DZrtToolChannel(QObject* parent = nullptr);
    ~OLM_DZrtToolChannel() override;

    /// 1 without a channel, else 0.
    int isEmpty() const { return count() == 0 ? 1 : 0; }

    /// The channel with this id, the first of the list if there are several; null if there is none.
    /// A channel keeps its former id here until the next changed().
    QSharedPointer<DZrtToolChannel> byKey(QString const& id) const { return m_byId.value(id); }

    /// What stands above a column; nothing, for no property of a channel is shown as a column.
    Q_INVOKABLE QVariant header(int section) const;

signals:
    /// Channels were inserted or removed, or the list was cleared.
    void changed();

protected:
    /// The channel at @p i, a `DZrtToolChannel*`; invalid out of range.
    Q_INVOKABLE QVariant item(int i) const;

    void notifyChanged() override;

private:
    QMap<QString, QSharedPointer<DZrtToolChannel>> m_byId;
};
