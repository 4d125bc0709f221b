#pragma once

#include <plugin_management/i_plugin.h>
#include <utilities/utilities.h>

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

    QUuid objectUuid() const override { return m_objectUuid; }
    QByteArray getName() const override { return m_identity.name.toUtf8(); }
    QUuid pluginUuid() const override { return m_identity.kind; }
    QString pluginName() const override { return m_identity.name; }
    QVersionNumber pluginVersion() const override
    {
        return {static_cast<int>(m_identity.version / 1000), static_cast<int>(m_identity.version % 1000)};
    }
    EnPluginKind pluginType() const override { return m_identity.type; }
    QSet<QUuid> compatiblePlugins() const override { return {m_identity.kind}; }
    QByteArray compatibilityString() const override { return m_identity.kind.toByteArray(); }
    QString getProperty(QString const& /*key*/, bool* /*ok*/) const override { return {}; }
    QVariant getProperty(QString const& /*key*/, QVariant const& value) const override { return value; }
    /// How many commands there are.
    int getFunctions(bool /*withStops*/) const override { return m_catalogue.size(); }
    QByteArray getFunctionDescription(QString const& /*command*/) const override { return {}; }
    QStringList getCommandParameters(QString const& /*command*/) const override { return {}; }
    bool setMainConfig(QSharedPointer<QJsonObject> /*config*/) override { return false; }
    QVariant getInMainConfig(QString const& /*key*/, QJsonValue const& value, bool* /*ok*/) const override
    {
        return value;
    }
    QVariant getInPluginConfig(QString const& /*key*/, QJsonValue const& value, bool* /*ok*/) const override
    {
        return value;
    }
    QByteArray getDebugIdentification() const override { return m_objectUuid.toByteArray(); }
    QJsonObject const* getMainConfig() const override { return nullptr; }
    bool setInPluginConfig(QString const& /*key*/, QJsonValue const& /*value*/) override { return false; }
    bool setInMainConfig(QString const& /*key*/, QJsonValue const& /*value*/) override { return false; }
    virtual void initPluginCommands() = 0;

    QStringList commandNames() const;
    QVector<DAbstractCommand*> const& catalogue() const { return m_catalogue; }
    /// What was published, `{toolType: int 0}`, in the order of publishing; what is to be kept has a star.
    QStringList const& published() const { return m_published; }

signals:
    void sigCommandsInitDone(QUuid const& objectUuid, QStringList const& commandNames);

protected:
    DAbstractPlugin(PluginIdentity const& identity, QUuid const& objectUuid, QObject* parent)
        : QObject(parent)
        , m_objectUuid(objectUuid)
        , m_identity(identity)
    {}

    /// Hides the operation of QObject.
    bool setProperty(QString const& key, QVariant const& value, bool isKept)
    {
        m_published += convVariantMapToString({{key, value}}) + (isKept ? QStringLiteral("*") : QString());
        return true;
    }
    /// Answers the command's place in the catalogue.
    int declareInstructionCommand(DAbstractCommand* command)
    {
        m_catalogue += command;
        return m_catalogue.size() - 1;
    }

private:
    QStringList m_published;
    QVector<DAbstractCommand*> m_catalogue;
    QUuid const m_objectUuid;
    PluginIdentity const m_identity;
};
