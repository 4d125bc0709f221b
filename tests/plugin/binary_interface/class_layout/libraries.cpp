// What the compiler lays out for the layout check of the host framework: its classes, and for those that are
// abstract a probe that gives every pure function a body, since the compiler's dump names a function only
// where it has one.
#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_abstract_tightening_tool.h>
#include <plugin_management/d_element.h>
#include <utilities/d_object.h>

class IPluginProbe : public IPlugin
{
public:
    QUuid objectUuid() const override;
    QString getName() const override;
    QUuid pluginUuid() const override;
    QString pluginName() const override;
    quint64 pluginVersion() const override;
    quint32 pluginType() const override;
    QList<QUuid> compatiblePlugins() const override;
    QString compatibilityString() const override;
    QVariant getProperty(QString const& key, bool* ok) const override;
    QVariant getProperty(QString const& key, QVariant const& defaultValue) const override;
    void setMainConfig(QSharedPointer<QJsonObject> config) override;
    QJsonValue getInMainConfig(QString const& key, QJsonValue const& defaultValue, bool* ok) const override;
    QJsonValue getInPluginConfig(QString const& key, QJsonValue const& defaultValue, bool* ok) const override;
    QString getDebugIdentification() const override;
    IPlugin* createInstance(QUuid const& objectUuid) const override;
    char const* pluginSubTypeName() const override;
    QStringList getFunctions(bool withStops) const override;
    QString getFunctionDescription(QString const& command) const override;
    QList<DDeclaration> getCommandParameters(QString const& command) const override;
    QSharedPointer<QJsonObject> getMainConfig() const override;
    void setInPluginConfig(QString const& key, QJsonValue const& value) override;
    void setInMainConfig(QString const& key, QJsonValue const& value) override;
};

class ICommandProbe : public ICommand
{
public:
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;
    void linkWithItsOrder(QObject* order) override;
    QString commandName() const override;
    QString stopCommandName() const override;
    quint64 getOrderId() const override;
    quint64 getParameterOrderId() const override;
    bool isRecurrent() const override;
    bool isValid() const override;
    QString description() const override;
    QString fullDescription() const override;
    DCommandArguments commandArguments() const override;
    bool commandExecute() override;
    bool setReply(quint64 instructionId, QMap<QString, QVariant> const& reply) override;
    bool finishTheCommand(bool& success) override;
    void sigCommandFinished(bool success) override;
};

class DAbstractPluginProbe : public DAbstractPlugin
{
public:
    void initPluginCommands() override;
    IPlugin* createInstance(QUuid const& objectUuid) const override;
    char const* pluginSubTypeName() const override;
};

class DAbstractTighteningToolProbe : public DAbstractTighteningTool
{
public:
    void initPluginCommands() override;
    IPlugin* createInstance(QUuid const& objectUuid) const override;
    char const* pluginSubTypeName() const override;
};

class DAbstractCommandProbe : public DAbstractCommand
{
public:
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;
};
