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

/// A status channel of the screwdriver.
class TestToolChannel : public QObject
{
    Q_OBJECT

private slots:
    void metaObject();
    void typesTable();
    void construction();
    void belongsToParent();

    void textTellsChanges_data();
    void textTellsChanges();
    void typeTellsChanges();
    void readCommandIsSilent();
    void valueStaysInvalid_data();
    void valueStaysInvalid();

    void takesTexts_data();
    void takesTexts();
    void takesNothingElse();
    void ignoresWhatIsNoList_data();
    void ignoresWhatIsNoList();
    void takesAttributes_data();
    void takesAttributes();
    void typeStaysUnknown_data();
    void typeStaysUnknown();
    void belongsToItsHolders();

    void isQmlType();
    void qmlMayNotWrite_data();
    void qmlMayNotWrite();
};

namespace
{

using Setter = void (DZrtToolChannel::*)(QString const&);

QVariantMap attribute(QVariant const& id, QVariant const& value)
{
    return {{QStringLiteral("id"), id}, {QStringLiteral("value"), value}};
}

QVariantMap description(QVariant const& value)
{
    return {{QStringLiteral("id"), QStringLiteral("led")},
            {QStringLiteral("name"), QStringLiteral("Lamp")},
            {QStringLiteral("value"), value}};
}

} // namespace

Q_DECLARE_METATYPE(Setter)

void TestToolChannel::metaObject()
{
    auto const& meta = DZrtToolChannel::staticMetaObject;
    QCOMPARE(meta.className(), "DZrtToolChannel");
    QCOMPARE(meta.superClass(), &DObject::staticMetaObject);
    QCOMPARE(ownEntries(meta),
             (QStringList{
                 QStringLiteral("QString id [read, final] notify idChanged()"),
                 QStringLiteral("QString name [read, final] notify nameChanged()"),
                 QStringLiteral("QString label [read, final] notify labelChanged()"),
                 QStringLiteral("QVariant value [read, final] notify valueChanged()"),
                 QStringLiteral("EnChannelType type [read, final, enumeration] notify typeChanged()"),
                 QStringLiteral("public signal void idChanged()"),
                 QStringLiteral("public signal void nameChanged()"),
                 QStringLiteral("public signal void labelChanged()"),
                 QStringLiteral("public signal void valueChanged()"),
                 QStringLiteral("public signal void typeChanged()"),
                 QStringLiteral("public signal void sigSwitchChannelValue(QString channelId)"),
                 QStringLiteral("enum EnChannelType { CeCtUnknown=0, CeCtString=1, CeCtBool=2, _CeCtNbr=3 }"),
             }));
}

void TestToolChannel::typesTable()
{
    static_assert(std::is_same_v<decltype(DZrtToolChannel::c_channelTypesMap),
                                 QMap<QString, DZrtToolChannel::EnChannelType> const>);
    QCOMPARE(DZrtToolChannel::c_channelTypesMap.size(), 0);
}

void TestToolChannel::construction()
{
    DZrtToolChannel const channel;
    QCOMPARE(channel.objectName(), QStringLiteral("DZrtToolChannel"));
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

void TestToolChannel::belongsToParent()
{
    auto parent = std::make_unique<QObject>();
    QPointer<DZrtToolChannel> const channel = new DZrtToolChannel(parent.get());
    QCOMPARE(channel->parent(), parent.get());
    parent.reset();
    QVERIFY(channel.isNull());
}

void TestToolChannel::textTellsChanges_data()
{
    QTest::addColumn<Setter>("set");
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("id") << &DZrtToolChannel::setId << QByteArray("id");
    QTest::newRow("name") << &DZrtToolChannel::setName << QByteArray("name");
    QTest::newRow("label") << &DZrtToolChannel::setLabel << QByteArray("label");
}

void TestToolChannel::textTellsChanges()
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
    (channel.*set)(QStringLiteral(""));
    QCOMPARE(emitted.take(), QStringList());
    (channel.*set)(QStringLiteral("lamp"));
    QCOMPARE(emitted.take(), told);
    QCOMPARE(whenTold, QVariant(QStringLiteral("lamp")));
    (channel.*set)(QStringLiteral("lamp"));
    QCOMPARE(emitted.take(), QStringList());
    (channel.*set)(QStringLiteral("Lamp"));
    QCOMPARE(emitted.take(), told);
    QCOMPARE(whenTold, QVariant(QStringLiteral("Lamp")));
    (channel.*set)(QString());
    QCOMPARE(emitted.take(), told);
    QCOMPARE(changed.count(), 3);

    // The other texts are as they were.
    for (auto const* other : {"id", "name", "label"})
        QCOMPARE(channel.property(other), QVariant(QString()));
    QCOMPARE(channel.readCommand(), QString());
}

void TestToolChannel::typeTellsChanges()
{
    DZrtToolChannel channel;
    SignalCounts emitted(channel);
    auto whenTold = DZrtToolChannel::_CeCtNbr;
    connect(&channel, &DZrtToolChannel::typeChanged, this, [&] { whenTold = channel.type(); });
    channel.setType(DZrtToolChannel::CeCtUnknown);
    QCOMPARE(emitted.take(), QStringList());
    for (auto const type : {DZrtToolChannel::CeCtBool, DZrtToolChannel::CeCtString}) {
        channel.setType(type);
        QCOMPARE(emitted.take(), QStringList{QStringLiteral("typeChanged")});
        QCOMPARE(whenTold, type);
        channel.setType(type);
        QCOMPARE(emitted.take(), QStringList());
        QCOMPARE(channel.property("type").toInt(), int(type));
    }
}

void TestToolChannel::readCommandIsSilent()
{
    DZrtToolChannel channel;
    SignalCounts emitted(channel);
    channel.setReadCommand(QStringLiteral("readLamp"));
    QCOMPARE(channel.readCommand(), QStringLiteral("readLamp"));
    channel.setReadCommand(QString());
    QCOMPARE(channel.readCommand(), QString());
    QCOMPARE(emitted.take(), QStringList());
}

void TestToolChannel::valueStaysInvalid_data()
{
    QTest::addColumn<QVariant>("value");

    auto const values = everyKindOfValue();
    for (auto const& [name, value] : values)
        QTest::newRow(name) << value;
}

void TestToolChannel::valueStaysInvalid()
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

void TestToolChannel::takesTexts_data()
{
    QTest::addColumn<QVariantMap>("description");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("name");

    QString const id = QStringLiteral("id");
    QString const name = QStringLiteral("name");
    QString const led = QStringLiteral("led");
    QTest::newRow("nothing") << QVariantMap() << QString() << QString();
    QTest::newRow("both") << QVariantMap{{id, led}, {name, QStringLiteral("Lamp")}} << led
                          << QStringLiteral("Lamp");
    QTest::newRow("id alone") << QVariantMap{{id, led}} << led << QString();
    QTest::newRow("name alone") << QVariantMap{{name, led}} << QString() << led;
    QTest::newRow("numbers") << QVariantMap{{id, 7}, {name, 2.5}} << QStringLiteral("7")
                             << QStringLiteral("2.5");
    QTest::newRow("no texts") << QVariantMap{{id, QVariantMap()}, {name, QVariantList{led}}} << QString()
                              << QString();
    QTest::newRow("other case") << QVariantMap{{QStringLiteral("Id"), led}, {QStringLiteral("NAME"), led}}
                                << QString() << QString();
}

void TestToolChannel::takesTexts()
{
    QFETCH(QVariantMap, description);
    QFETCH(QString, id);
    QFETCH(QString, name);
    auto const channel = DZrtToolChannel::create(description);
    QCOMPARE(channel->id(), id);
    QCOMPARE(channel->name(), name);
    QCOMPARE(channel->attributes(), QVariantMap());
}

void TestToolChannel::takesNothingElse()
{
    auto const channel = DZrtToolChannel::create({
        {QStringLiteral("label"), QStringLiteral("Lamp")},
        {QStringLiteral("readCommand"), QStringLiteral("readLamp")},
        {QStringLiteral("type"), int(DZrtToolChannel::CeCtBool)},
        {QStringLiteral("objectName"), QStringLiteral("lamp")},
        {QStringLiteral("value"),
         QVariantList{attribute(QStringLiteral("id"), 1), attribute(QStringLiteral("name"), 2),
                      attribute(QStringLiteral("label"), 3), attribute(QStringLiteral("readCommand"), 4),
                      attribute(QStringLiteral("value"), 5)}},
    });
    QCOMPARE(channel->id(), QString());
    QCOMPARE(channel->name(), QString());
    QCOMPARE(channel->label(), QString());
    QCOMPARE(channel->readCommand(), QString());
    QVERIFY(!channel->value().isValid());
    QCOMPARE(channel->type(), DZrtToolChannel::CeCtUnknown);
    QCOMPARE(channel->objectName(), QStringLiteral("DZrtToolChannel"));
    QCOMPARE(channel->attributes().size(), 5);
}

void TestToolChannel::ignoresWhatIsNoList_data()
{
    QTest::addColumn<QVariant>("value");

    auto const values = everyKindOfValue();
    for (auto const& [name, value] : values) {
        if (value.userType() != QMetaType::QVariantList)
            QTest::newRow(name) << value;
    }
    QTest::newRow("an attribute that stands alone")
        << QVariant(attribute(QStringLiteral("colour"), QStringLiteral("red")));
}

void TestToolChannel::ignoresWhatIsNoList()
{
    QFETCH(QVariant, value);
    auto const channel = DZrtToolChannel::create(description(value));
    QCOMPARE(channel->attributes(), QVariantMap());
    QCOMPARE(channel->id(), QStringLiteral("led"));
    QCOMPARE(channel->name(), QStringLiteral("Lamp"));
    QVERIFY(!channel->value().isValid());
}

void TestToolChannel::takesAttributes_data()
{
    QTest::addColumn<QVariantList>("list");
    QTest::addColumn<QVariantMap>("attributes");

    QString const colour = QStringLiteral("colour");
    QString const red = QStringLiteral("red");
    QVariantMap const nameless{{QString(), QVariant()}};
    QTest::newRow("none") << QVariantList() << QVariantMap();
    QTest::newRow("two") << QVariantList{attribute(colour, red), attribute(QStringLiteral("size"), 3)}
                         << QVariantMap{{colour, red}, {QStringLiteral("size"), 3}};
    QTest::newRow("the later one counts")
        << QVariantList{attribute(colour, red), attribute(QStringLiteral("size"), 3), attribute(colour, 4)}
        << QVariantMap{{colour, 4}, {QStringLiteral("size"), 3}};
    QTest::newRow("the later one is nothing")
        << QVariantList{attribute(colour, red), QVariantMap{{QStringLiteral("id"), colour}}}
        << QVariantMap{{colour, QVariant()}};
    QTest::newRow("number as id") << QVariantList{attribute(7, red)}
                                  << QVariantMap{{QStringLiteral("7"), red}};
    QTest::newRow("cases differ") << QVariantList{attribute(colour, red),
                                                  attribute(QStringLiteral("Colour"), 3)}
                                  << QVariantMap{{colour, red}, {QStringLiteral("Colour"), 3}};
    QTest::newRow("without id") << QVariantList{QVariantMap{{QStringLiteral("value"), red}}}
                                << QVariantMap{{QString(), red}};
    QTest::newRow("structured value") << QVariantList{attribute(colour, QVariantList{1, red})}
                                      << QVariantMap{{colour, QVariantList{1, red}}};
    QTest::newRow("empty map") << QVariantList{QVariantMap()} << nameless;
    QTest::newRow("no maps") << QVariantList{QVariant(), 1, red, QVariantList{attribute(colour, red)}}
                             << nameless;
    QTest::newRow("a map among others") << QVariantList{1, attribute(colour, red), red}
                                        << QVariantMap{{QString(), QVariant()}, {colour, red}};
}

void TestToolChannel::takesAttributes()
{
    QFETCH(QVariantList, list);
    QFETCH(QVariantMap, attributes);
    auto const channel = DZrtToolChannel::create(description(list));
    QCOMPARE(channel->attributes(), attributes);
    QCOMPARE(channel->id(), QStringLiteral("led"));
    QCOMPARE(channel->name(), QStringLiteral("Lamp"));
    QVERIFY(!channel->value().isValid());
}

void TestToolChannel::typeStaysUnknown_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QVariant>("value");

    QString const type = QStringLiteral("type");
    auto const values = everyKindOfValue();
    for (auto const& [name, value] : values)
        QTest::newRow(name) << type << value;
    for (auto const* name : {"CeCtString", "CeCtBool", "String", "string", "Bool", "bool", "boolean", "2"})
        QTest::newRow(name) << type << QVariant(QString::fromLatin1(name));
    QTest::newRow("other case") << QStringLiteral("Type") << QVariant(QStringLiteral("bool"));
}

void TestToolChannel::typeStaysUnknown()
{
    QFETCH(QString, id);
    QFETCH(QVariant, value);
    auto const channel = DZrtToolChannel::create(description(QVariantList{attribute(id, value)}));
    QCOMPARE(channel->type(), DZrtToolChannel::CeCtUnknown);
    // An attribute like any other, besides.
    QCOMPARE(channel->attributes().keys(), QStringList{id});
    QCOMPARE(channel->attributes().value(id).userType(), value.userType());
}

void TestToolChannel::belongsToItsHolders()
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

void TestToolChannel::isQmlType()
{
    PToolVeskZrt const plugin; // registers the types
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import PlgLibToolZrt 1.0\n"
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
    QCOMPARE(channel->objectName(), QStringLiteral("DZrtToolChannel"));
    QCOMPARE(object->property("bool").toInt(), int(DZrtToolChannel::CeCtBool));
    auto const shown = [&] { return object->property("shown").value<QJSValue>().toVariant().toList(); };
    QString const undefined = QStringLiteral("undefined");
    QCOMPARE(shown(), (QVariantList{QString(), QString(), QString(), undefined, 0, undefined}));

    channel->setId(QStringLiteral("led"));
    channel->setName(QStringLiteral("Lamp"));
    channel->setLabel(QStringLiteral("The lamp"));
    channel->setType(DZrtToolChannel::CeCtString);
    channel->setReadCommand(QStringLiteral("readLamp"));
    QCOMPARE(shown(), (QVariantList{QStringLiteral("led"), QStringLiteral("Lamp"), QStringLiteral("The lamp"),
                                    undefined, 1, undefined}));
    emit channel->sigSwitchChannelValue(QStringLiteral("led"));
    QCOMPARE(object->property("asked").toString(), QStringLiteral("led"));
}

void TestToolChannel::qmlMayNotWrite_data()
{
    QTest::addColumn<QByteArray>("property");

    for (auto const* name : {"name", "label", "value", "type"})
        QTest::newRow(name) << QByteArray(name);
}

void TestToolChannel::qmlMayNotWrite()
{
    QFETCH(QByteArray, property);
    PToolVeskZrt const plugin;
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import PlgLibToolZrt 1.0\nDZrtToolChannel { " + property + ": 'x' }", QUrl());
    QVERIFY(component.isError());
    QVERIFY2(component.errorString().contains(QStringLiteral("read-only")),
             qPrintable(component.errorString()));
}

QTEST_GUILESS_MAIN(TestToolChannel)
#include "tst_tool_channel.moc"
