#include "shipped_plugin.h"

#include <plugin_management/d_abstract_tightening_tool.h>
#include <utilities/utilities.h>

#include <QFile>
#include <QLibrary>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QTest>

/// The plugin object of the shipped library, as a host meets it.
class TestToolPlugin : public QObject
{
    Q_OBJECT

private slots:
    void metaData();
    void architectureByte();
    void rootObject();
    void identity_data();
    void identity();
    void staticIdentity();
    void instances();
    void properties();
    void baseClasses();
    void qmlTypes_data();
    void qmlTypes();
};

namespace
{

QUuid const c_kind(QStringLiteral("{fe68f24c-ac43-4833-abc7-7d9f33744448}"));
QUuid const c_object(QStringLiteral("{11111111-2222-4333-8444-555555555555}"));

} // namespace

void TestToolPlugin::metaData()
{
    ShippedPlugin shipped;
    auto const metaData = shipped.loader().metaData();
    QCOMPARE(metaData.value(QStringLiteral("className")).toString(), QStringLiteral("PToolVeskZrt"));
    QString const identifier = metaData.value(QStringLiteral("IID")).toString();
    QVERIFY2(identifier.endsWith(QStringLiteral(".rd.box.PToolVeskZrt")), qPrintable(identifier));
    QVERIFY(metaData.value(QStringLiteral("MetaData")).toObject().isEmpty());
}

void TestToolPlugin::architectureByte()
{
    QFile file(QStringLiteral(ZRT_PLUGIN_FILE));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QByteArray const content = file.readAll();
    QByteArray const magic("QTMETADATA !");
    QCOMPARE(content.count(magic), 1);
    QByteArray const header = content.mid(content.indexOf(magic) + magic.size(), 4);
#ifdef QT_NO_DEBUG
    QCOMPARE(header, QByteArray("\x00\x05\x0f\x00", 4));
#else
    // The lowest bit tells a debug build.
    QCOMPARE(header, QByteArray("\x00\x05\x0f\x01", 4));
#endif
}

void TestToolPlugin::rootObject()
{
    ShippedPlugin shipped;
    QVERIFY2(shipped.root(), qPrintable(shipped.loader().errorString()));
    QCOMPARE(shipped.root(), ShippedPlugin().root());
    QVERIFY(shipped.root()->objectUuid().isNull());
    QVERIFY(!shipped.root()->parent());
}

void TestToolPlugin::identity_data()
{
    QTest::addColumn<QUuid>("objectUuid");
    QTest::newRow("a tool") << c_object;
    QTest::newRow("null") << QUuid();
}

void TestToolPlugin::identity()
{
    QFETCH(QUuid, objectUuid);
    auto const instance = ShippedPlugin().makeInstance(objectUuid);
    QVERIFY(instance);
    QCOMPARE(instance->objectUuid(), objectUuid);
    QCOMPARE(instance->pluginUuid(), c_kind);
    QCOMPARE(instance->pluginName(), QStringLiteral("Plugin Tool ZRT"));
    QCOMPARE(instance->pluginVersion(), versionFromString(QStringLiteral("1.0"), nullptr, QLatin1Char('.')));
    QCOMPARE(versionToString(instance->pluginVersion()), QStringLiteral("1.0"));
    QCOMPARE(instance->pluginType(), quint32(0x546F6F6C));
    QCOMPARE(instance->pluginSubTypeName(), "tightening");
    QCOMPARE(static_cast<IPlugin const&>(*instance).pluginSubTypeName(), "tightening");
}

void TestToolPlugin::staticIdentity()
{
    // The class-level functions, as a host that links against the library finds them.
    QLibrary library(QStringLiteral(ZRT_PLUGIN_FILE));
    auto const id = reinterpret_cast<QUuid (*)()>(library.resolve("_ZN12PToolVeskZrt11getPluginIdEv"));
    auto const name =
        reinterpret_cast<char const* (*)()>(library.resolve("_ZN12PToolVeskZrt13getPluginNameEv"));
    auto const type = reinterpret_cast<quint32 (*)()>(library.resolve("_ZN12PToolVeskZrt13getPluginTypeEv"));
    QVERIFY2(id && name && type, qPrintable(library.errorString()));
    QCOMPARE(id(), c_kind);
    QCOMPARE(name(), "Plugin Tool ZRT");
    QCOMPARE(type(), quint32(0x546F6F6C));
}

void TestToolPlugin::instances()
{
    ShippedPlugin shipped;
    auto const first = shipped.makeInstance(c_object);
    auto const second = std::unique_ptr<IPlugin>(first->createInstance(QUuid()));
    QVERIFY(!first->parent());
    QVERIFY(second->objectUuid().isNull());
    // A new instance copies nothing from the one it was asked on.
    first->setObjectName(QStringLiteral("left bench"));
    first->initPluginCommands();
    auto const third = std::unique_ptr<IPlugin>(first->createInstance(c_object));
    QCOMPARE(third->getName(), QString());
    QCOMPARE(third->getFunctions(true), QStringList());
    QVERIFY(dynamic_cast<DAbstractTighteningTool*>(third.get()));
}

void TestToolPlugin::properties()
{
    auto const instance = ShippedPlugin().makeInstance(c_object);
    auto const published = instance->properties();
    QCOMPARE(published.size(), 3);
    QCOMPARE(published[0].first, QStringLiteral("toolType"));
    QCOMPARE(published[0].second.userType(), int(QMetaType::Int));
    QCOMPARE(published[0].second.toInt(), 0);
    QCOMPARE(published[1].first, QStringLiteral("features"));
    QCOMPARE(published[1].second.userType(), int(QMetaType::QStringList));
    QCOMPARE(published[1].second.toStringList(), QStringList{QStringLiteral("allow_loosening")});
    QCOMPARE(published[2].first, QStringLiteral("typeName"));
    QCOMPARE(published[2].second.userType(), int(QMetaType::QString));
    QCOMPARE(published[2].second.toString(), QStringLiteral("tightening"));
}

void TestToolPlugin::baseClasses()
{
    auto const instance = ShippedPlugin().makeInstance(c_object);
    QCOMPARE(instance->metaObject()->className(), "PToolVeskZrt");
    QCOMPARE(instance->metaObject()->superClass(), &DAbstractTighteningTool::staticMetaObject);
    // Nothing of its own stands in the meta-object.
    QCOMPARE(instance->metaObject()->methodCount(), DAbstractTighteningTool::staticMetaObject.methodCount());
    QCOMPARE(instance->metaObject()->propertyCount(),
             DAbstractTighteningTool::staticMetaObject.propertyCount());
    QCOMPARE(instance->metaObject()->classInfoCount(), 0);
}

void TestToolPlugin::qmlTypes_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("backend") << QStringLiteral("BeMaintenanceToolZrt");
    QTest::newRow("channel") << QStringLiteral("DZrtToolChannel");
}

void TestToolPlugin::qmlTypes()
{
    QFETCH(QString, name);
    ShippedPlugin shipped;
    // Every plugin object registers the types, and the engine takes them.
    auto const first = shipped.makeInstance(c_object);
    auto const second = shipped.makeInstance(QUuid());
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import PlgLibToolZrt 1.0\n" + name.toLatin1() + " {}", QUrl());
    std::unique_ptr<QObject> const object(component.create());
    QVERIFY2(object, qPrintable(component.errorString()));
    QCOMPARE(QString::fromLatin1(object->metaObject()->className()), name);
    QCOMPARE(component.errors().size(), 0);
}

QTEST_GUILESS_MAIN(TestToolPlugin)
#include "tst_tool_plugin.moc"
