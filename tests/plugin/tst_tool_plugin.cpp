#include "literals.h"
#include "meta_entries.h"
#include "p_tool_vesk_zrt.h"
#include "shipped_plugin.h"

#include <plugin_management/d_abstract_tightening_tool.h>
#include <utilities/utilities.h>

#include <QLibrary>
#include <QTest>

namespace
{

QUuid const c_kind("{fe68f24c-ac43-4833-abc7-7d9f33744448}"_s);
QUuid const c_object("{11111111-2222-4333-8444-555555555555}"_s);

} // namespace

/// The plugin object of the shipped library, as a host meets it.
class TestToolPlugin : public QObject
{
    Q_OBJECT

private slots:
    void identity_data()
    {
        QTest::addColumn<QUuid>("objectUuid");
        QTest::newRow("a tool") << c_object;
        QTest::newRow("null") << QUuid();
    }

    void identity()
    {
        QFETCH(QUuid, objectUuid);
        auto const instance = ShippedPlugin().makeInstance(objectUuid);
        QVERIFY(instance);
        QCOMPARE(instance->objectUuid(), objectUuid);
        QCOMPARE(instance->pluginUuid(), c_kind);
        QCOMPARE(instance->pluginName(), "Plugin Tool ZRT"_s);
        QCOMPARE(instance->pluginVersion(), versionFromString("1.0"_s, nullptr, QLatin1Char('.')));
        QCOMPARE(versionToString(instance->pluginVersion()), "1.0"_s);
        QCOMPARE(instance->pluginType(), quint32(0x546F6F6C));
        QCOMPARE(instance->pluginSubTypeName(), "tightening");
        QCOMPARE(static_cast<IPlugin const&>(*instance).pluginSubTypeName(), "tightening");
    }

    void staticIdentity()
    {
        // The class-level functions, as a host that links against the library finds them.
        QLibrary library(QStringLiteral(ZRT_PLUGIN_FILE));
        auto const id = reinterpret_cast<QUuid (*)()>(library.resolve("_ZN12PToolVeskZrt11getPluginIdEv"));
        auto const name =
            reinterpret_cast<char const* (*)()>(library.resolve("_ZN12PToolVeskZrt13getPluginNameEv"));
        auto const type =
            reinterpret_cast<quint32 (*)()>(library.resolve("_ZN12PToolVeskZrt13getPluginTypeEv"));
        QVERIFY2(id && name && type, qPrintable(library.errorString()));
        QCOMPARE(id(), c_kind);
        QCOMPARE(name(), "Plugin Tool ZRT");
        QCOMPARE(type(), quint32(0x546F6F6C));
    }

    void instances()
    {
        ShippedPlugin shipped;
        auto const first = shipped.makeInstance(c_object);
        auto const second = std::unique_ptr<IPlugin>(first->createInstance(QUuid()));
        QVERIFY(!first->parent());
        QVERIFY(second->objectUuid().isNull());
        // A new instance copies nothing from the one it was asked on.
        first->setObjectName("left bench"_s);
        first->initPluginCommands();
        auto const third = std::unique_ptr<IPlugin>(first->createInstance(c_object));
        QCOMPARE(third->getName(), QString());
        QCOMPARE(third->getFunctions(true), QStringList());
        QVERIFY(dynamic_cast<DAbstractTighteningTool*>(third.get()));
    }

    void ownInstance()
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

    void properties()
    {
        auto const instance = ShippedPlugin().makeInstance(c_object);
        auto const published = instance->properties();
        QCOMPARE(published.size(), 3);
        QCOMPARE(published[0].first, "toolType"_s);
        QCOMPARE(published[0].second.userType(), int(QMetaType::Int));
        QCOMPARE(published[0].second.toInt(), 0);
        QCOMPARE(published[1].first, "features"_s);
        QCOMPARE(published[1].second.userType(), int(QMetaType::QStringList));
        QCOMPARE(published[1].second.toStringList(), QStringList{"allow_loosening"_s});
        QCOMPARE(published[2].first, "typeName"_s);
        QCOMPARE(published[2].second.userType(), int(QMetaType::QString));
        QCOMPARE(published[2].second.toString(), "tightening"_s);
    }

    void metaObject()
    {
        auto const instance = ShippedPlugin().makeInstance(c_object);
        QCOMPARE(instance->metaObject()->className(), "PToolVeskZrt");
        // Nothing of its own stands in the meta-object.
        QCOMPARE(ownEntries(*instance->metaObject()), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestToolPlugin)
#include "tst_tool_plugin.moc"
