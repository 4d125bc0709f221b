#include "meta_entries.h"
#include "p_tool_vesk_zrt.h"
#include "shipped_plugin.h"

#include <plugin_management/d_abstract_tightening_tool.h>
#include <utilities/utilities.h>

#include <QLibrary>
#include <QTest>

/// The plugin object of the shipped library, as a host meets it.
class TestToolPlugin : public QObject
{
    Q_OBJECT

private slots:
    void identity_data();
    void identity();
    void staticIdentity();
    void instances();
    void ownInstance();
    void properties();
    void metaObject();
};

namespace
{

QUuid const c_kind(QStringLiteral("{fe68f24c-ac43-4833-abc7-7d9f33744448}"));
QUuid const c_object(QStringLiteral("{11111111-2222-4333-8444-555555555555}"));

} // namespace

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

void TestToolPlugin::ownInstance()
{
    // Made by a host that links against the library.
    QObject parent;
    auto const* const child = new PToolVeskZrt(c_object, &parent);
    QCOMPARE(child->parent(), &parent);
    QCOMPARE(child->objectUuid(), c_object);
    PToolVeskZrt const root;
    QVERIFY(!root.parent());
    QVERIFY(root.objectUuid().isNull());
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

void TestToolPlugin::metaObject()
{
    auto const instance = ShippedPlugin().makeInstance(c_object);
    QCOMPARE(instance->metaObject()->className(), "PToolVeskZrt");
    // Nothing of its own stands in the meta-object.
    QCOMPARE(ownEntries(*instance->metaObject()), QStringList());
}

QTEST_GUILESS_MAIN(TestToolPlugin)
#include "tst_tool_plugin.moc"
