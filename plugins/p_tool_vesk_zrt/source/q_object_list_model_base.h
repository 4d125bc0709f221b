#pragma once

#include <QAbstractListModel>
#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMetaProperty>
#include <QPair>
#include <QQmlEngine>
#include <QSharedPointer>
#include <QVariant>

#include <algorithm>

/// Lists of objects as models for QML.
namespace __qobjectsqmllist // NOLINT(bugprone-reserved-identifier): hosts know it by this name
{

/// A list of objects of class T as a model: a delegate finds its object under `modelData`, and those of its
/// properties that are declared as roles under their names.
///
/// The objects belong to the shared pointers that hold them, never to QML: one that was taken into a list
/// lives exactly as long as a shared pointer to it, whatever scripts did with it meanwhile. A null pointer
/// may stand in the list. Everything happens on the GUI thread.
///
/// A template has no meta-object; what QML is to call stands in a subclass (`OLM_` and the name of T).
template <class T> class QObjectListModelBase : public QAbstractListModel
{
public:
    /// Pairs of a role's number and the name of the property that answers for it.
    using PropertyRoles = QList<QPair<int, QByteArray>>;

    static constexpr int c_objectRole = Qt::UserRole; ///< the object itself, a `QObject*`

    explicit QObjectListModelBase(QObject* parent = nullptr, PropertyRoles const& propertyRoles = {})
        : QAbstractListModel(parent)
        , m_propertyRoles(propertyRoles)
    {}
    ~QObjectListModelBase() override = default;

    int rowCount(QModelIndex const& parent = QModelIndex()) const override;
    /// The object's property if @p role is declared for one, the object for c_objectRole, else nothing.
    QVariant data(QModelIndex const& index, int role = Qt::DisplayRole) const override;
    /// The name of the property that is declared for @p role, once there is an object to have it.
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return m_items.size(); }
    /// Null out of range.
    QSharedPointer<T> at(int i) const { return m_items.value(i); }

    void append(QSharedPointer<T> const& item) { insert(count(), item); }
    /// Inserts in front of the item at @p i; at the nearest end if there is no such place.
    void insert(int i, QSharedPointer<T> const& item);
    /// Out of range nothing happens.
    void removeAt(int i);
    void clear();

protected:
    /// The list has changed. Called once after each change, when everything else knows of it.
    virtual void notifyChanged() = 0;

private:
    // What was set on the object without being declared is none of its class's properties.
    static QVariant declared(QObject const& object, char const* property)
    {
        auto const* const meta = object.metaObject();
        return meta->property(meta->indexOfProperty(property)).read(&object);
    }

    QList<QSharedPointer<T>> m_items;
    PropertyRoles m_propertyRoles;
};

template <class T> int QObjectListModelBase<T>::rowCount(QModelIndex const& /*parent*/) const
{
    return count();
}

template <class T> QVariant QObjectListModelBase<T>::data(QModelIndex const& index, int role) const
{
    if (index.row() < 0 || index.row() >= count())
        return {};
    QObject* const object = at(index.row()).data();
    for (auto const& [number, property] : m_propertyRoles) {
        if (number == role)
            return object ? declared(*object, property) : QVariant();
    }
    return role == c_objectRole ? QVariant::fromValue(object) : QVariant();
}

template <class T>
QVariant QObjectListModelBase<T>::headerData(int /*section*/, Qt::Orientation orientation, int role) const
{
    if (count() == 0 || orientation != Qt::Horizontal)
        return {};
    for (auto const& [number, property] : m_propertyRoles) {
        if (number == role)
            return QString::fromUtf8(property);
    }
    return {};
}

template <class T> QHash<int, QByteArray> QObjectListModelBase<T>::roleNames() const
{
    auto names = QAbstractListModel::roleNames();
    names.insert(c_objectRole, QByteArrayLiteral("modelData"));
    for (auto const& [number, property] : m_propertyRoles)
        names.insert(number, property);
    return names;
}

template <class T> void QObjectListModelBase<T>::insert(int i, QSharedPointer<T> const& item)
{
    // Otherwise the engine would delete a parentless object that a script got hold of.
    if (item)
        QQmlEngine::setObjectOwnership(item.data(), QQmlEngine::CppOwnership);
    int const row = std::clamp(i, 0, count());
    beginInsertRows(QModelIndex(), row, row);
    m_items.insert(row, item);
    endInsertRows();
    notifyChanged();
}

template <class T> void QObjectListModelBase<T>::removeAt(int i)
{
    if (i < 0 || i >= count())
        return;
    beginRemoveRows(QModelIndex(), i, i);
    m_items.removeAt(i);
    endRemoveRows();
    notifyChanged();
}

template <class T> void QObjectListModelBase<T>::clear()
{
    beginResetModel();
    m_items.clear();
    endResetModel();
    notifyChanged();
}

} // namespace __qobjectsqmllist
