#include "literals.h"
#include "meta_entries.h"
#include "signal_counts.h"
#include "variants.h"

#include <d_zrt_tool_channel.h>
#include <p_tool_vesk_zrt.h>

#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QWeakPointer>
#include <QtTest>

#include <memory>
#include <type_traits>

namespace
{

using Setter = void (DZrtToolChannel::*)(QString const&);

QVariantMap attribute(QVariant const& id, QVariant const& value)
{
    return {{"id"_s, id}, {"value"_s, value}};
}

QVariantMap description(QVariant const& value)
{
    return {{"id"_s, "led"_s}, {"name"_s, "Lamp"_s}, {"value"_s, value}};
}

} // namespace

Q_DECLARE_METATYPE(Setter)

/// A status channel of the screwdriver.
class TestToolChannel : public QObject
{
    Q_OBJECT

private slots:
    void metaObject()
    {
        auto const& meta = DZrtToolChannel::staticMetaObject;
        QCOMPARE(meta.className(), "DZrtToolChannel");
        QCOMPARE(meta.superClass(), &DObject::staticMetaObject);
        QCOMPARE(ownEntries(meta),
                 (QStringList{
                     "QString id [read, final] notify idChanged()"_s,
                     "QString name [read, final] notify nameChanged()"_s,
                     "QString label [read, final] notify labelChanged()"_s,
                     "QVariant value [read, final] notify valueChanged()"_s,
                     "EnChannelType type [read, final, enumeration] notify typeChanged()"_s,
                     "public signal void idChanged()"_s,
                     "public signal void nameChanged()"_s,
                     "public signal void labelChanged()"_s,
                     "public signal void valueChanged()"_s,
                     "public signal void typeChanged()"_s,
                     "public signal void sigSwitchChannelValue(QString channelId)"_s,
                     "enum EnChannelType { CeCtUnknown=0, CeCtString=1, CeCtBool=2, _CeCtNbr=3 }"_s,
                 }));
    }

    void typesTable()
    {
        static_assert(std::is_same_v<decltype(DZrtToolChannel::c_channelTypesMap),
                                     QMap<QString, DZrtToolChannel::EnChannelType> const>);
        QCOMPARE(DZrtToolChannel::c_channelTypesMap.size(), 0);
    }

    void construction()
    {
        DZrtToolChannel const channel;
        QCOMPARE(channel.objectName(), "DZrtToolChannel"_s);
        QVERIFY(!channel.parent());
        QCOMPARE(channel.id(), QString());
        QCOMPARE(channel.name(), QString());
        QCOMPARE(channel.label(), QString());
        QCOMPARE(channel.readCommand(), QString());
        QVERIFY(!channel.value().isValid());
        QVERIFY(!channel.property("value").isValid());
        QCOMPARE(channel.type(), DZrtToolChannel::CeCtUnknown);
        QCOMPARE(channel.attributes(), QVariantMap());
    }

    void belongsToParent()
    {
        auto parent = std::make_unique<QObject>();
        QPointer<DZrtToolChannel> const channel = new DZrtToolChannel(parent.get());
        QCOMPARE(channel->parent(), parent.get());
        parent.reset();
        QVERIFY(channel.isNull());
    }

    void textTellsChanges_data()
    {
        QTest::addColumn<Setter>("set");
        QTest::addColumn<QByteArray>("name");

        QTest::newRow("id") << &DZrtToolChannel::setId << QByteArray("id");
        QTest::newRow("name") << &DZrtToolChannel::setName << QByteArray("name");
        QTest::newRow("label") << &DZrtToolChannel::setLabel << QByteArray("label");
    }

    void textTellsChanges()
    {
        QFETCH(Setter, set);
        QFETCH(QByteArray, name);
        QStringList const told{QString::fromLatin1(name + "Changed")};
        DZrtToolChannel channel;
        SignalCounts emitted(channel);
        QVariant whenTold;
        QMetaProperty const property =
            channel.metaObject()->property(channel.metaObject()->indexOfProperty(name));
        QSignalSpy const changed(&channel, property.notifySignal());
        auto const remember = [&] { whenTold = channel.property(name); };
        connect(&channel, &DZrtToolChannel::idChanged, this, remember);
        connect(&channel, &DZrtToolChannel::nameChanged, this, remember);
        connect(&channel, &DZrtToolChannel::labelChanged, this, remember);

        (channel.*set)(QString());
        (channel.*set)(""_s);
        QCOMPARE(emitted.take(), QStringList());
        (channel.*set)("lamp"_s);
        QCOMPARE(emitted.take(), told);
        QCOMPARE(whenTold, QVariant("lamp"_s));
        (channel.*set)("lamp"_s);
        QCOMPARE(emitted.take(), QStringList());
        (channel.*set)("Lamp"_s);
        QCOMPARE(emitted.take(), told);
        QCOMPARE(whenTold, QVariant("Lamp"_s));
        (channel.*set)(QString());
        QCOMPARE(emitted.take(), told);
        QCOMPARE(changed.count(), 3);

        // The other texts are as they were.
        for (auto const* other : {"id", "name", "label"})
            QCOMPARE(channel.property(other), QVariant(QString()));
        QCOMPARE(channel.readCommand(), QString());
    }

    void typeTellsChanges()
    {
        DZrtToolChannel channel;
        SignalCounts emitted(channel);
        auto whenTold = DZrtToolChannel::_CeCtNbr;
        connect(&channel, &DZrtToolChannel::typeChanged, this, [&] { whenTold = channel.type(); });
        channel.setType(DZrtToolChannel::CeCtUnknown);
        QCOMPARE(emitted.take(), QStringList());
        for (auto const type : {DZrtToolChannel::CeCtBool, DZrtToolChannel::CeCtString}) {
            channel.setType(type);
            QCOMPARE(emitted.take(), QStringList{"typeChanged"_s});
            QCOMPARE(whenTold, type);
            channel.setType(type);
            QCOMPARE(emitted.take(), QStringList());
            QCOMPARE(channel.property("type").toInt(), int(type));
        }
    }

    void readCommandIsSilent()
    {
        DZrtToolChannel channel;
        SignalCounts emitted(channel);
        channel.setReadCommand("readLamp"_s);
        QCOMPARE(channel.readCommand(), "readLamp"_s);
        channel.setReadCommand(QString());
        QCOMPARE(channel.readCommand(), QString());
        QCOMPARE(emitted.take(), QStringList());
    }

    void valueStaysInvalid_data()
    {
        QTest::addColumn<QVariant>("value");

        auto const values = everyKindOfValue();
        for (auto const& [name, value] : values)
            QTest::newRow(name) << value;
    }

    void valueStaysInvalid()
    {
        QFETCH(QVariant, value);
        DZrtToolChannel channel;
        SignalCounts emitted(channel);
        QCOMPARE(channel.setValue(value), true);
        QVERIFY(!channel.value().isValid());
        QCOMPARE(channel.value().toBool(), false);
        QCOMPARE(emitted.take(), QStringList());
        QCOMPARE(channel.attributes(), QVariantMap());
    }

    void takesTexts_data()
    {
        QTest::addColumn<QVariantMap>("description");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("name");

        QString const id = "id"_s;
        QString const name = "name"_s;
        QString const led = "led"_s;
        QTest::newRow("nothing") << QVariantMap() << QString() << QString();
        QTest::newRow("both") << QVariantMap{{id, led}, {name, "Lamp"_s}} << led << "Lamp"_s;
        QTest::newRow("id alone") << QVariantMap{{id, led}} << led << QString();
        QTest::newRow("name alone") << QVariantMap{{name, led}} << QString() << led;
        QTest::newRow("numbers") << QVariantMap{{id, 7}, {name, 2.5}} << "7"_s
                                 << "2.5"_s;
        QTest::newRow("no texts") << QVariantMap{{id, QVariantMap()}, {name, QVariantList{led}}} << QString()
                                  << QString();
        QTest::newRow("other case") << QVariantMap{{"Id"_s, led}, {"NAME"_s, led}} << QString() << QString();
    }

    void takesTexts()
    {
        QFETCH(QVariantMap, description);
        QFETCH(QString, id);
        QFETCH(QString, name);
        auto const channel = DZrtToolChannel::create(description);
        QCOMPARE(channel->id(), id);
        QCOMPARE(channel->name(), name);
        QCOMPARE(channel->attributes(), QVariantMap());
    }

    void takesNothingElse()
    {
        auto const channel = DZrtToolChannel::create({
            {"label"_s, "Lamp"_s},
            {"readCommand"_s, "readLamp"_s},
            {"type"_s, int(DZrtToolChannel::CeCtBool)},
            {"objectName"_s, "lamp"_s},
            {"value"_s, QVariantList{attribute("id"_s, 1), attribute("name"_s, 2), attribute("label"_s, 3),
                                     attribute("readCommand"_s, 4), attribute("value"_s, 5)}},
        });
        QCOMPARE(channel->id(), QString());
        QCOMPARE(channel->name(), QString());
        QCOMPARE(channel->label(), QString());
        QCOMPARE(channel->readCommand(), QString());
        QVERIFY(!channel->value().isValid());
        QCOMPARE(channel->type(), DZrtToolChannel::CeCtUnknown);
        QCOMPARE(channel->objectName(), "DZrtToolChannel"_s);
        QCOMPARE(channel->attributes().size(), 5);
    }

    void ignoresWhatIsNoList_data()
    {
        QTest::addColumn<QVariant>("value");

        auto const values = everyKindOfValue();
        for (auto const& [name, value] : values) {
            if (value.userType() != QMetaType::QVariantList)
                QTest::newRow(name) << value;
        }
        QTest::newRow("an attribute that stands alone") << QVariant(attribute("colour"_s, "red"_s));
    }

    void ignoresWhatIsNoList()
    {
        QFETCH(QVariant, value);
        auto const channel = DZrtToolChannel::create(description(value));
        QCOMPARE(channel->attributes(), QVariantMap());
        QCOMPARE(channel->id(), "led"_s);
        QCOMPARE(channel->name(), "Lamp"_s);
        QVERIFY(!channel->value().isValid());
    }

    void takesAttributes_data()
    {
        QTest::addColumn<QVariantList>("list");
        QTest::addColumn<QVariantMap>("attributes");

        QString const colour = "colour"_s;
        QString const red = "red"_s;
        QVariantMap const nameless{{QString(), QVariant()}};
        QTest::newRow("none") << QVariantList() << QVariantMap();
        QTest::newRow("two") << QVariantList{attribute(colour, red), attribute("size"_s, 3)}
                             << QVariantMap{{colour, red}, {"size"_s, 3}};
        QTest::newRow("the later one counts")
            << QVariantList{attribute(colour, red), attribute("size"_s, 3), attribute(colour, 4)}
            << QVariantMap{{colour, 4}, {"size"_s, 3}};
        QTest::newRow("the later one is nothing")
            << QVariantList{attribute(colour, red), QVariantMap{{"id"_s, colour}}}
            << QVariantMap{{colour, QVariant()}};
        QTest::newRow("number as id") << QVariantList{attribute(7, red)} << QVariantMap{{"7"_s, red}};
        QTest::newRow("cases differ") << QVariantList{attribute(colour, red), attribute("Colour"_s, 3)}
                                      << QVariantMap{{colour, red}, {"Colour"_s, 3}};
        QTest::newRow("without id") << QVariantList{QVariantMap{{"value"_s, red}}}
                                    << QVariantMap{{QString(), red}};
        QTest::newRow("structured value") << QVariantList{attribute(colour, QVariantList{1, red})}
                                          << QVariantMap{{colour, QVariantList{1, red}}};
        QTest::newRow("empty map") << QVariantList{QVariantMap()} << nameless;
        QTest::newRow("no maps") << QVariantList{QVariant(), 1, red, QVariantList{attribute(colour, red)}}
                                 << nameless;
        QTest::newRow("a map among others") << QVariantList{1, attribute(colour, red), red}
                                            << QVariantMap{{QString(), QVariant()}, {colour, red}};
    }

    void takesAttributes()
    {
        QFETCH(QVariantList, list);
        QFETCH(QVariantMap, attributes);
        auto const channel = DZrtToolChannel::create(description(list));
        QCOMPARE(channel->attributes(), attributes);
        QCOMPARE(channel->id(), "led"_s);
        QCOMPARE(channel->name(), "Lamp"_s);
        QVERIFY(!channel->value().isValid());
    }

    void typeStaysUnknown_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QVariant>("value");

        QString const type = "type"_s;
        auto const values = everyKindOfValue();
        for (auto const& [name, value] : values)
            QTest::newRow(name) << type << value;
        for (auto const* name :
             {"CeCtString", "CeCtBool", "String", "string", "Bool", "bool", "boolean", "2"})
            QTest::newRow(name) << type << QVariant(QString::fromLatin1(name));
        QTest::newRow("other case") << "Type"_s << QVariant("bool"_s);
    }

    void typeStaysUnknown()
    {
        QFETCH(QString, id);
        QFETCH(QVariant, value);
        auto const channel = DZrtToolChannel::create(description(QVariantList{attribute(id, value)}));
        QCOMPARE(channel->type(), DZrtToolChannel::CeCtUnknown);
        // An attribute like any other, besides.
        QCOMPARE(channel->attributes().keys(), QStringList{id});
        QCOMPARE(channel->attributes().value(id).userType(), value.userType());
    }

    void belongsToItsHolders()
    {
        auto channel = DZrtToolChannel::create({});
        QVERIFY(!channel->parent());
        QPointer<DZrtToolChannel> const guarded = channel.data();
        QWeakPointer<QObject> const weak = channel;
        QVERIFY(weak.toStrongRef() == channel);
        auto second = channel;
        channel.reset();
        QVERIFY(!guarded.isNull());
        QVERIFY(!weak.isNull());
        second.reset();
        // At once, without an event loop.
        QVERIFY(guarded.isNull());
        QVERIFY(weak.isNull());
    }

    void isQmlType()
    {
        PToolVeskZrt const plugin; // registers the types
        QQmlEngine engine;
        QQmlComponent component(&engine);
        component.setData(
            "import PlgLibToolZrt 1.0\n"
            "DZrtToolChannel {\n"
            "    property string asked: ''\n"
            "    property int bool: DZrtToolChannel.CeCtBool\n"
            "    property var shown: [id, name, label, typeof value, type, typeof readCommand]\n"
            "    onSigSwitchChannelValue: function(channelId) { asked += channelId }\n"
            "}\n",
            QUrl());
        std::unique_ptr<QObject> const object(component.create());
        QVERIFY2(object, qPrintable(component.errorString()));
        auto* const channel = qobject_cast<DZrtToolChannel*>(object.get());
        QVERIFY(channel);
        QCOMPARE(channel->objectName(), "DZrtToolChannel"_s);
        QCOMPARE(object->property("bool").toInt(), int(DZrtToolChannel::CeCtBool));
        auto const shown = [&] { return object->property("shown").value<QJSValue>().toVariant().toList(); };
        QString const undefined = "undefined"_s;
        QCOMPARE(shown(), (QVariantList{QString(), QString(), QString(), undefined, 0, undefined}));

        channel->setId("led"_s);
        channel->setName("Lamp"_s);
        channel->setLabel("The lamp"_s);
        channel->setType(DZrtToolChannel::CeCtString);
        channel->setReadCommand("readLamp"_s);
        QCOMPARE(shown(), (QVariantList{"led"_s, "Lamp"_s, "The lamp"_s, undefined, 1, undefined}));
        emit channel->sigSwitchChannelValue("led"_s);
        QCOMPARE(object->property("asked").toString(), "led"_s);
    }

    void qmlMayNotWrite_data()
    {
        QTest::addColumn<QByteArray>("property");

        for (auto const* name : {"name", "label", "value", "type"})
            QTest::newRow(name) << QByteArray(name);
    }

    void qmlMayNotWrite()
    {
        QFETCH(QByteArray, property);
        PToolVeskZrt const plugin;
        QQmlEngine engine;
        QQmlComponent component(&engine);
        component.setData("import PlgLibToolZrt 1.0\nDZrtToolChannel { " + property + ": 'x' }", QUrl());
        QVERIFY(component.isError());
        QVERIFY2(component.errorString().contains("read-only"_s), qPrintable(component.errorString()));
    }
};

QTEST_GUILESS_MAIN(TestToolChannel)
#include "tst_tool_channel.moc"
