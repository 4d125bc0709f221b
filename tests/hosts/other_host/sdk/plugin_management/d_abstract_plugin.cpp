#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_tightening_tool.h>
#include <utilities/utilities.h>

DAbstractPlugin::DAbstractPlugin(PluginIdentity const& identity, QUuid const& objectUuid, QObject* parent)
    : QObject(parent)
    , m_objectUuid(objectUuid)
    , m_identity(identity)
{}

DAbstractPlugin::~DAbstractPlugin() = default;

QUuid DAbstractPlugin::objectUuid() const
{
    return m_objectUuid;
}

QByteArray DAbstractPlugin::getName() const
{
    return m_identity.name.toUtf8();
}

QUuid DAbstractPlugin::pluginUuid() const
{
    return m_identity.kind;
}

QString DAbstractPlugin::pluginName() const
{
    return m_identity.name;
}

QVersionNumber DAbstractPlugin::pluginVersion() const
{
    return {static_cast<int>(m_identity.version / 1000), static_cast<int>(m_identity.version % 1000)};
}

EnPluginKind DAbstractPlugin::pluginType() const
{
    return m_identity.type;
}

QSet<QUuid> DAbstractPlugin::compatiblePlugins() const
{
    return {m_identity.kind};
}

QByteArray DAbstractPlugin::compatibilityString() const
{
    return m_identity.kind.toByteArray();
}

QString DAbstractPlugin::getProperty(QString const& key, bool* ok) const
{
    if (ok)
        *ok = m_properties.contains(key);
    return m_properties.value(key).toString();
}

QVariant DAbstractPlugin::getProperty(QString const& key, QVariant const& defaultValue) const
{
    return m_properties.value(key, defaultValue);
}

int DAbstractPlugin::getFunctions(bool /*withStops*/) const
{
    return m_catalogue.size();
}

QByteArray DAbstractPlugin::getFunctionDescription(QString const& /*command*/) const
{
    return {};
}

QStringList DAbstractPlugin::getCommandParameters(QString const& /*command*/) const
{
    return {};
}

bool DAbstractPlugin::setMainConfig(QSharedPointer<QJsonObject> /*config*/)
{
    return false;
}

QVariant DAbstractPlugin::getInMainConfig(QString const& /*key*/, QJsonValue const& defaultValue,
                                          bool* /*ok*/) const
{
    return defaultValue;
}

QVariant DAbstractPlugin::getInPluginConfig(QString const& /*key*/, QJsonValue const& defaultValue,
                                            bool* /*ok*/) const
{
    return defaultValue;
}

QByteArray DAbstractPlugin::getDebugIdentification() const
{
    return m_objectUuid.toByteArray();
}

QJsonObject const* DAbstractPlugin::getMainConfig() const
{
    return nullptr;
}

bool DAbstractPlugin::setInPluginConfig(QString const& /*key*/, QJsonValue const& /*value*/)
{
    return false;
}

bool DAbstractPlugin::setInMainConfig(QString const& /*key*/, QJsonValue const& /*value*/)
{
    return false;
}

QStringList DAbstractPlugin::commandNames() const
{
    QStringList names;
    for (auto const* command : m_catalogue)
        names += command->commandName();
    return names;
}

bool DAbstractPlugin::setProperty(QString const& key, QVariant const& value, bool isKept)
{
    bool const isNew = !m_properties.contains(key);
    m_properties.insert(key, value);
    m_published += convVariantMapToString({{key, value}}) + (isKept ? QStringLiteral("*") : QString());
    return isNew;
}

int DAbstractPlugin::declareInstructionCommand(DAbstractCommand* command)
{
    m_catalogue += command;
    return m_catalogue.size() - 1;
}

DAbstractTighteningTool::DAbstractTighteningTool(QUuid const& pluginUuid, QString const& pluginName,
                                                 quint64 version, QUuid const& objectUuid, QObject* parent)
    : DAbstractPlugin({pluginUuid, pluginName, version, EnPluginKind::CeTool}, objectUuid, parent)
{}

DAbstractTighteningTool::~DAbstractTighteningTool() = default;
