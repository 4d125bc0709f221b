#include "meta_entries.h"
#include "p_tool_vesk_zrt.h"
#include "working_command.h"

#include <plugin_management/d_abstract_tightening_tool.h>
#include <utilities/utilities.h>

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
    void identity()
    {
        auto const instance = ShippedPlugin().makeInstance(c_object);
        QCOMPARE(instance->objectUuid(), c_object);
        QCOMPARE(instance->pluginUuid(), c_kind);
        QCOMPARE(instance->pluginName(), "Plugin Tool ZRT"_s);
        QCOMPARE(versionToString(instance->pluginVersion()), "1.0"_s);
        QCOMPARE(instance->pluginType(), quint32(0x546F6F6C));
        QCOMPARE(instance->pluginSubTypeName(), "tightening");
        QCOMPARE(instance->metaObject()->className(), "PToolVeskZrt");
        QCOMPARE(ownEntries(*instance->metaObject()), QStringList());
        QVERIFY(ShippedPlugin().makeInstance(QUuid())->objectUuid().isNull());
    }

    // A host that links against the library asks the class.
    void staticIdentity()
    {
        QCOMPARE(PToolVeskZrt::getPluginId(), c_kind);
        QCOMPARE(PToolVeskZrt::getPluginName(), "Plugin Tool ZRT");
        QCOMPARE(PToolVeskZrt::getPluginType(), quint32(0x546F6F6C));
    }

    void properties()
    {
        QStringList texts;
        auto const published = ShippedPlugin().makeInstance(c_object)->properties();
        for (auto const& [key, value] : published)
            texts += "%1 = %2"_s.arg(key, textOf(value));
        QCOMPARE(texts.join("; "_s),
                 "toolType = 0; features = QStringList allow_loosening; typeName = \"tightening\""_s);
    }

    void instanceCopiesNothing()
    {
        auto const first = ShippedPlugin().makeInstanceWithCommands();
        first->setObjectName("left bench"_s);
        std::unique_ptr<IPlugin> const second(first->createInstance(c_object));
        QCOMPARE(second->getName(), QString());
        QCOMPARE(second->getFunctions(true), QStringList());
        auto const* const tool = dynamic_cast<DAbstractTighteningTool*>(second.get());
        QVERIFY(tool);
        QVERIFY(!tool->parent());
    }

    // It makes instances itself, too.
    void ownInstance()
    {
        QObject parent;
        auto const* const child = new PToolVeskZrt(c_object, &parent);
        QCOMPARE(child->parent(), &parent);
        QCOMPARE(child->objectUuid(), c_object);
        PToolVeskZrt const root;
        QVERIFY(!root.parent());
        QVERIFY(root.objectUuid().isNull());
    }
};

QTEST_GUILESS_MAIN(TestToolPlugin)
#include "tst_tool_plugin.moc"
