#pragma once

#include <QtGlobal>

class QByteArray;
class QJsonObject;
class QJsonValue;
class QString;
class QStringList;
class QUuid;
class QVariant;
class QVersionNumber;
template <class T> class QSet;
template <class T> class QSharedPointer;

enum class EnPluginKind : quint32
{
    CeNone,
    CeTool = 0x546F6F6C // 'Tool'
};

/// A plugin as this host sees it. The order is that of the contract; the results that the contract leaves
/// open are this host's own.
class Q_DECL_EXPORT IPlugin
{
public:
    virtual ~IPlugin() = default;

    virtual QUuid objectUuid() const = 0;
    virtual QByteArray getName() const = 0;
    virtual QUuid pluginUuid() const = 0;
    virtual QString pluginName() const = 0;
    virtual QVersionNumber pluginVersion() const = 0;
    virtual EnPluginKind pluginType() const = 0;
    virtual QSet<QUuid> compatiblePlugins() const = 0;
    virtual QByteArray compatibilityString() const = 0;
    virtual QString getProperty(QString const& key, bool* ok) const = 0;
    virtual QVariant getProperty(QString const& key, QVariant const& defaultValue) const = 0;
    virtual bool setMainConfig(QSharedPointer<QJsonObject> config) = 0;
    virtual QVariant getInMainConfig(QString const& key, QJsonValue const& defaultValue, bool* ok) const = 0;
    virtual QVariant getInPluginConfig(QString const& key, QJsonValue const& defaultValue,
                                       bool* ok) const = 0;
    virtual QByteArray getDebugIdentification() const = 0;
    virtual IPlugin* createInstance(QUuid const& objectUuid) const = 0;
    virtual char const* pluginSubTypeName() const = 0;
    virtual int getFunctions(bool withStops) const = 0;
    virtual QByteArray getFunctionDescription(QString const& command) const = 0;
    virtual QStringList getCommandParameters(QString const& command) const = 0;
    virtual QJsonObject const* getMainConfig() const = 0;
    virtual bool setInPluginConfig(QString const& key, QJsonValue const& value) = 0;
    virtual bool setInMainConfig(QString const& key, QJsonValue const& value) = 0;
};
