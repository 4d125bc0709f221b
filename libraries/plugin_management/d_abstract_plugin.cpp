#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin.h>

#include <utilities/utilities.h>

#include <algorithm>
#include <utility>

namespace
{

QJsonValue valueIn(QJsonObject const& object, QString const& key, QJsonValue const& defaultValue, bool* ok)
{
    auto const it = object.constFind(key);
    bool const found = it != object.constEnd();
    if (ok)
        *ok = found;
    return found ? *it : defaultValue;
}

} // namespace

DAbstractPlugin::DAbstractPlugin(QUuid const& pluginUuid, QString const& pluginName, quint64 version,
                                 quint32 pluginType, QUuid const& objectUuid, QObject* parent)
    : QObject(parent)
    , m_pluginUuid(pluginUuid)
    , m_pluginName(pluginName)
    , m_version(version)
    , m_pluginType(pluginType)
    , m_objectUuid(objectUuid)
{}

DAbstractPlugin::~DAbstractPlugin()
{
    // A working command goes when whoever holds it lets go. As a child it would go now, and then once more.
    QStringList names;
    auto const commands = findChildren<DAbstractCommand*>(QString(), Qt::FindDirectChildrenOnly);
    for (auto* const command : commands) {
        if (std::find(m_prototypes.cbegin(), m_prototypes.cend(), command) != m_prototypes.cend())
            continue;
        names += command->commandName();
        command->setParent(nullptr);
    }
    if (!names.isEmpty())
        qCritical("The plugin instance %s was destroyed before its working commands: %s",
                  qPrintable(m_objectUuid.toString()), qPrintable(names.join(QStringLiteral(", "))));
}

QUuid DAbstractPlugin::objectUuid() const
{
    return m_objectUuid;
}

QString DAbstractPlugin::getName() const
{
    return objectName();
}

QUuid DAbstractPlugin::pluginUuid() const
{
    return m_pluginUuid;
}

QString DAbstractPlugin::pluginName() const
{
    return m_pluginName;
}

quint64 DAbstractPlugin::pluginVersion() const
{
    return m_version;
}

quint32 DAbstractPlugin::pluginType() const
{
    return m_pluginType;
}

QList<QUuid> DAbstractPlugin::compatiblePlugins() const
{
    return {m_pluginUuid};
}

QString DAbstractPlugin::compatibilityString() const
{
    return m_pluginUuid.toString() + QLatin1Char(' ') + versionToString(m_version);
}

QVariant DAbstractPlugin::getProperty(QString const& key, bool* ok) const
{
    auto const it = std::find_if(m_properties.cbegin(), m_properties.cend(),
                                 [&key](auto const& property) { return property.first == key; });
    bool const found = it != m_properties.cend();
    if (ok)
        *ok = found;
    return found ? it->second : QVariant();
}

QVariant DAbstractPlugin::getProperty(QString const& key, QVariant const& defaultValue) const
{
    bool found = false;
    QVariant const value = getProperty(key, &found);
    return found ? value : defaultValue;
}

QStringList DAbstractPlugin::getFunctions(bool withStops) const
{
    QStringList functions = commandNames();
    if (!withStops)
        return functions;
    for (auto const& prototype : m_prototypes) {
        QString const stop = prototype ? prototype->stopCommandName() : QString();
        if (!stop.isEmpty() && !functions.contains(stop))
            functions += stop;
    }
    return functions;
}

QString DAbstractPlugin::getFunctionDescription(QString const& command) const
{
    auto const* const prototype = commandPrototype(command);
    return prototype ? prototype->description() : QString();
}

QList<DDeclaration> DAbstractPlugin::getCommandParameters(QString const& command) const
{
    auto const* const prototype = commandPrototype(command);
    return prototype ? prototype->commandArguments().parameters : QList<DDeclaration>();
}

void DAbstractPlugin::setMainConfig(QSharedPointer<QJsonObject> config)
{
    m_mainConfig = std::move(config);
}

QJsonValue DAbstractPlugin::getInMainConfig(QString const& key, QJsonValue const& defaultValue,
                                            bool* ok) const
{
    return valueIn(m_mainConfig ? *m_mainConfig : QJsonObject(), key, defaultValue, ok);
}

QJsonValue DAbstractPlugin::getInPluginConfig(QString const& key, QJsonValue const& defaultValue,
                                              bool* ok) const
{
    QJsonObject const section = getInMainConfig(m_pluginUuid.toString(), QJsonValue(), nullptr).toObject();
    return valueIn(section, key, defaultValue, ok);
}

QString DAbstractPlugin::getDebugIdentification() const
{
    return QStringLiteral("%1 \"%2\" %3")
        .arg(QLatin1String(metaObject()->className()), getName(), m_objectUuid.toString());
}

QSharedPointer<QJsonObject> DAbstractPlugin::getMainConfig() const
{
    return m_mainConfig;
}

void DAbstractPlugin::setInPluginConfig(QString const& key, QJsonValue const& value)
{
    QString const sectionKey = m_pluginUuid.toString();
    QJsonObject section = getInMainConfig(sectionKey, QJsonValue(), nullptr).toObject();
    section.insert(key, value);
    setInMainConfig(sectionKey, section);
}

void DAbstractPlugin::setInMainConfig(QString const& key, QJsonValue const& value)
{
    if (m_mainConfig)
        m_mainConfig->insert(key, value);
}

QStringList DAbstractPlugin::commandNames() const
{
    QStringList names;
    for (auto const& prototype : m_prototypes) {
        if (prototype)
            names += prototype->commandName();
    }
    return names;
}

ICommand const* DAbstractPlugin::commandPrototype(QString const& name) const
{
    auto const it = std::find_if(m_prototypes.cbegin(), m_prototypes.cend(), [&name](auto const& prototype) {
        return prototype && prototype->commandName() == name;
    });
    return it == m_prototypes.cend() ? nullptr : it->data();
}

QList<QPair<QString, QVariant>> DAbstractPlugin::properties() const
{
    return m_properties;
}

void DAbstractPlugin::setProperty(QString const& key, QVariant const& value, bool /*persistent*/)
{
    auto const it = std::find_if(m_properties.begin(), m_properties.end(),
                                 [&key](auto const& property) { return property.first == key; });
    if (it == m_properties.end())
        m_properties.append({key, value});
    else
        it->second = value;
}

void DAbstractPlugin::declareInstructionCommand(DAbstractCommand* command)
{
    if (!command->parent())
        command->setParent(this);
    m_prototypes.emplace_back(command);
}
