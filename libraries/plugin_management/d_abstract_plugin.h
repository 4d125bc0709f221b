#pragma once

#include <plugin_management/i_command.h>
#include <plugin_management/i_plugin.h>

#include <QObject>
#include <QPointer>
#include <QVector>

#include <vector>

class DAbstractCommand;

/// A plugin object: an identity, published properties, a configuration and a catalogue of commands.
///
/// A plugin library offers one root object, which makes the working instances (createInstance()), one for
/// each piece of equipment that the host has configured. Everything happens on
/// the thread that owns the object.
///
/// The order in which virtual operations are declared is the order of the virtual table and part of the
/// contract with plugins that are already built: never move one.
class PLUGIN_MANAGEMENT_EXPORT DAbstractPlugin : public QObject, public IPlugin
{
    Q_OBJECT

public:
    /// @param pluginUuid  the plugin's kind, the same for all instances
    /// @param pluginType  a four-character code, 'Tool' for tightening tools
    /// @param version     as versionFromString() packs it
    /// @param objectUuid  this instance; null for the root object
    DAbstractPlugin(QUuid const& pluginUuid, QString const& pluginName, quint64 version, quint32 pluginType,
                    QUuid const& objectUuid, QObject* parent);
    /// The working commands made from its prototypes must be gone. Those that are not live on without it, and
    /// a critical line of the log names them.
    ~DAbstractPlugin() override;

    QUuid objectUuid() const override;
    /// The name of this instance, its objectName().
    QString getName() const override;
    QUuid pluginUuid() const override;
    QString pluginName() const override;
    quint64 pluginVersion() const override;
    quint32 pluginType() const override;
    /// The kinds of plugin this one works with: its own.
    QList<QUuid> compatiblePlugins() const override;
    /// Kind and version in one text, "{uuid} 1.0".
    QString compatibilityString() const override;

    /// A published property; an invalid QVariant, and false in @p ok (may be null), where there is none.
    QVariant getProperty(QString const& key, bool* ok) const override;
    /// A published property, or @p defaultValue where there is none.
    QVariant getProperty(QString const& key, QVariant const& defaultValue) const override;

    /// The names of the declared commands; with @p withStops the stop names too, each once, behind them.
    QStringList getFunctions(bool withStops) const override;
    /// The description of a declared command; empty for any other name.
    QString getFunctionDescription(QString const& command) const override;
    /// The parameters of a declared command; none for any other name.
    QList<DDeclaration> getCommandParameters(QString const& command) const override;

    /// The host's configuration, which all its plugins share; may be null.
    void setMainConfig(QSharedPointer<QJsonObject> config) override;
    /// A value of the main configuration, or @p defaultValue, and false in @p ok (may be null), where there
    /// is none.
    QJsonValue getInMainConfig(QString const& key, QJsonValue const& defaultValue, bool* ok) const override;
    /// As getInMainConfig(), in this plugin's own section: the object under the text of pluginUuid().
    QJsonValue getInPluginConfig(QString const& key, QJsonValue const& defaultValue, bool* ok) const override;

    /// Class, name and identity in one text, for messages.
    QString getDebugIdentification() const override;

    QSharedPointer<QJsonObject> getMainConfig() const override;
    /// Writes into this plugin's section; without a main configuration nothing happens.
    void setInPluginConfig(QString const& key, QJsonValue const& value) override;
    /// Writes into the main configuration; without one nothing happens.
    void setInMainConfig(QString const& key, QJsonValue const& value) override;

    /// Declares the plugin's commands, then emits sigCommandsInitDone(). The host
    /// calls it once on each instance.
    virtual void initPluginCommands() = 0;
    /// A new instance without a parent; the caller owns it.
    IPlugin* createInstance(QUuid const& objectUuid) const override = 0;
    char const* pluginSubTypeName() const override = 0;

    using QObject::setProperty;

    /// The names of all declared commands, in the order of declaration.
    QStringList commandNames() const;
    /// The prototype declared under @p name, to clone with createCommand(); null where there is none.
    ICommand const* commandPrototype(QString const& name) const;
    /// All published properties, in the order in which they were first published.
    QList<QPair<QString, QVariant>> properties() const;

signals:
    /// The catalogue is complete.
    void sigCommandsInitDone(QUuid const& objectUuid, QStringList const& commandNames);

protected:
    /// Publishes a property, or replaces its value. The third argument belongs to hosts that keep
    /// configurations between runs; this one does not and has no use for it.
    void setProperty(QString const& key, QVariant const& value, bool persistent);

    /// Takes a prototype into the catalogue. A command without a parent becomes a child of this plugin; one
    /// with a parent stays its parent's, and leaves the catalogue when that deletes it.
    void declareInstructionCommand(DAbstractCommand* command);

private:
    QUuid const m_pluginUuid;
    QString const m_pluginName;
    quint64 const m_version;
    quint32 const m_pluginType;
    QUuid const m_objectUuid;
    QList<QPair<QString, QVariant>> m_properties;
    std::vector<QPointer<DAbstractCommand>> m_prototypes;
    QSharedPointer<QJsonObject> m_mainConfig;
};
