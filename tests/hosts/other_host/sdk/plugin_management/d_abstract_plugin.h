#pragma once

#include <plugin_management/i_plugin.h>

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QSharedPointer>
#include <QStringList>
#include <QUuid>
#include <QVariant>
#include <QVector>
#include <QVersionNumber>

class DAbstractCommand;

/// What every plugin of this host is known by.
struct PluginIdentity
{
    QUuid kind;
    QString name;
    quint64 version = 0;
    EnPluginKind type = EnPluginKind::CeNone;
};

/// The contract's virtual operations stand in its order; createInstance() and pluginSubTypeName() come from
/// IPlugin and take their places where the plugin implements them.
class Q_DECL_EXPORT DAbstractPlugin : public QObject, public IPlugin
{
    Q_OBJECT

public:
    ~DAbstractPlugin() override;

    QUuid objectUuid() const override;
    QByteArray getName() const override;
    QUuid pluginUuid() const override;
    QString pluginName() const override;
    QVersionNumber pluginVersion() const override;
    EnPluginKind pluginType() const override;
    QSet<QUuid> compatiblePlugins() const override;
    QByteArray compatibilityString() const override;
    QString getProperty(QString const& key, bool* ok) const override;
    QVariant getProperty(QString const& key, QVariant const& defaultValue) const override;
    /// How many commands there are.
    int getFunctions(bool withStops) const override;
    QByteArray getFunctionDescription(QString const& command) const override;
    QStringList getCommandParameters(QString const& command) const override;
    bool setMainConfig(QSharedPointer<QJsonObject> config) override;
    QVariant getInMainConfig(QString const& key, QJsonValue const& defaultValue, bool* ok) const override;
    QVariant getInPluginConfig(QString const& key, QJsonValue const& defaultValue, bool* ok) const override;
    QByteArray getDebugIdentification() const override;
    QJsonObject const* getMainConfig() const override;
    bool setInPluginConfig(QString const& key, QJsonValue const& value) override;
    bool setInMainConfig(QString const& key, QJsonValue const& value) override;
    virtual void initPluginCommands() = 0;

    QStringList commandNames() const;
    QVector<DAbstractCommand*> const& catalogue() const { return m_catalogue; }
    /// What was published, `{toolType: int 0}`, in the order of publishing; what is to be kept has a star.
    QStringList const& published() const { return m_published; }

signals:
    void sigCommandsInitDone(QUuid const& objectUuid, QStringList const& commandNames);

protected:
    DAbstractPlugin(PluginIdentity const& identity, QUuid const& objectUuid, QObject* parent);

    /// Answers whether the property is a new one. Hides the operation of QObject.
    bool setProperty(QString const& key, QVariant const& value, bool isKept);
    /// Answers the command's place in the catalogue.
    int declareInstructionCommand(DAbstractCommand* command);

private:
    QStringList m_published;
    QMap<QString, QVariant> m_properties;
    QVector<DAbstractCommand*> m_catalogue;
    QUuid const m_objectUuid;
    PluginIdentity const m_identity;
};
