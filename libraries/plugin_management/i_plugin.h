#pragma once

#include <plugin_management/d_declaration.h>
#include <plugin_management/export.h>

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <QVariant>

/// A plugin as the host sees it. DAbstractPlugin documents the operations and gives them their behaviour.
///
/// The order of the declarations is the order of the virtual table and part of the contract with plugins that
/// are already built: never move one, add new ones at the end.
class PLUGIN_MANAGEMENT_EXPORT IPlugin
{
public:
    virtual ~IPlugin();

    virtual QUuid objectUuid() const = 0;
    virtual QString getName() const = 0;
    virtual QUuid pluginUuid() const = 0;
    virtual QString pluginName() const = 0;
    virtual quint64 pluginVersion() const = 0;
    virtual quint32 pluginType() const = 0;
    virtual QList<QUuid> compatiblePlugins() const = 0;
    virtual QString compatibilityString() const = 0;
    virtual QVariant getProperty(QString const& key, bool* ok) const = 0;
    virtual QVariant getProperty(QString const& key, QVariant const& defaultValue) const = 0;
    virtual void setMainConfig(QSharedPointer<QJsonObject> config) = 0;
    virtual QJsonValue getInMainConfig(QString const& key, QJsonValue const& defaultValue,
                                       bool* ok) const = 0;
    virtual QJsonValue getInPluginConfig(QString const& key, QJsonValue const& defaultValue,
                                         bool* ok) const = 0;
    virtual QString getDebugIdentification() const = 0;
    virtual IPlugin* createInstance(QUuid const& objectUuid) const = 0;
    virtual char const* pluginSubTypeName() const = 0;
    virtual QStringList getFunctions(bool withStops) const = 0;
    virtual QString getFunctionDescription(QString const& command) const = 0;
    virtual QList<DDeclaration> getCommandParameters(QString const& command) const = 0;
    virtual QSharedPointer<QJsonObject> getMainConfig() const = 0;
    virtual void setInPluginConfig(QString const& key, QJsonValue const& value) = 0;
    virtual void setInMainConfig(QString const& key, QJsonValue const& value) = 0;

protected:
    IPlugin() = default;
    IPlugin(IPlugin const&) = default;
    IPlugin& operator=(IPlugin const&) = default;
};
