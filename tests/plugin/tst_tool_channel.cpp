#include "literals.h"
#include "meta_entries.h"
#include "qml_object.h"
#include "signal_log.h"
#include "variants.h"

#include <d_zrt_tool_channel.h>

#include <QPointer>
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

/// A channel that listens to itself.
class Channel : public DZrtToolChannel
{
public:
    Channel()
    {
        auto const note = [this] { whenTold = texts(); };
        connect(this, &DZrtToolChannel::idChanged, this, note);
        connect(this, &DZrtToolChannel::nameChanged, this, note);
        connect(this, &DZrtToolChannel::labelChanged, this, note);
        connect(this, &DZrtToolChannel::typeChanged, this, note);
    }

    /// All texts and the type, as properties show them.
    QString texts() const
    {
        return "%1 %2 %3 %4"_s.arg(property("id").toString(), property("name").toString(),
                                   property("label").toString(), property("type").toString());
    }

    QString whenTold;
    SignalLog emitted{*this};
};

} // namespace

Q_DECLARE_METATYPE(Setter)

/// A status channel of the screwdriver.
class TestToolChannel : public QObject
{
    Q_OBJECT

private slots:
    void metaObject()
    {
        QCOMPARE(describe(DZrtToolChannel::staticMetaObject),
                 (QStringList{
                     "class DZrtToolChannel : DObject"_s,
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
        static_assert(std::is_same_v<decltype(DZrtToolChannel::c_channelTypesMap),
                                     QMap<QString, DZrtToolChannel::EnChannelType> const>);
        QCOMPARE(DZrtToolChannel::c_channelTypesMap.size(), 0);
    }

    void construction()
    {
        DZrtToolChannel const channel;
        QCOMPARE(channel.objectName(), "DZrtToolChannel"_s);
        QVERIFY(!channel.parent());
        QCOMPARE(channel.id() + channel.name() + channel.label() + channel.readCommand(), QString());
        QVERIFY(!channel.value().isValid());
        QCOMPARE(channel.type(), DZrtToolChannel::CeCtUnknown);
        QCOMPARE(channel.attributes(), QVariantMap());
    }

    void belongsToParent()
    {
        auto parent = std::make_unique<QObject>();
        QPointer<DZrtToolChannel> const channel = new DZrtToolChannel(parent.get());
        parent.reset();
        QVERIFY(channel.isNull());
    }

    void textTellsChanges_data()
    {
        QTest::addColumn<Setter>("set");
        QTest::addColumn<QString>("texts");
        QTest::addColumn<QString>("told");

        QTest::newRow("id") << &DZrtToolChannel::setId << "%1   0"_s
                            << "idChanged"_s;
        QTest::newRow("name") << &DZrtToolChannel::setName << " %1  0"_s
                              << "nameChanged"_s;
        QTest::newRow("label") << &DZrtToolChannel::setLabel << "  %1 0"_s
                               << "labelChanged"_s;
    }

    void textTellsChanges()
    {
        QFETCH(Setter, set);
        QFETCH(QString, texts);
        QFETCH(QString, told);
        Channel channel;
        (channel.*set)(QString());
        (channel.*set)(""_s);
        QCOMPARE(channel.emitted.take(), QStringList());
        // Another case is another text.
        for (auto const& text : {"lamp"_s, "Lamp"_s, ""_s}) {
            (channel.*set)(text);
            QCOMPARE(channel.emitted.take(), QStringList{told});
            QCOMPARE(channel.whenTold, texts.arg(text));
            (channel.*set)(text);
            QCOMPARE(channel.emitted.take(), QStringList());
        }
        QCOMPARE(channel.readCommand(), QString());
    }

    void typeTellsChanges()
    {
        Channel channel;
        channel.setType(DZrtToolChannel::CeCtUnknown);
        QCOMPARE(channel.emitted.take(), QStringList());
        for (auto const type : {DZrtToolChannel::CeCtBool, DZrtToolChannel::CeCtString}) {
            channel.setType(type);
            QCOMPARE(channel.emitted.take(), QStringList{"typeChanged"_s});
            QCOMPARE(channel.whenTold, "   %1"_s.arg(int{type}));
            channel.setType(type);
            QCOMPARE(channel.emitted.take(), QStringList());
        }
    }

    void readCommandIsSilent()
    {
        Channel channel;
        for (auto const& command : {"readLamp"_s, QString()}) {
            channel.setReadCommand(command);
            QCOMPARE(channel.readCommand(), command);
            QCOMPARE(channel.emitted.take(), QStringList());
        }
    }

    void valueStaysInvalid()
    {
        Channel channel;
        auto const values = everyKindOfValue();
        for (auto const& [name, value] : values) {
            QVERIFY2(channel.setValue(value), name);
            QVERIFY2(!channel.value().isValid(), name);
        }
        QCOMPARE(channel.emitted.take(), QStringList());
        QCOMPARE(channel.attributes(), QVariantMap());
    }

    void takesTexts_data()
    {
        QTest::addColumn<QVariantMap>("description");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("name");

        auto const row = [](char const* name, QVariantMap const& description, char const* id,
                            char const* itsName) {
            QTest::newRow(name) << description << QString::fromLatin1(id) << QString::fromLatin1(itsName);
        };
        row("nothing", {}, "", "");
        row("both", {{"id"_s, "led"_s}, {"name"_s, "Lamp"_s}}, "led", "Lamp");
        row("id alone", {{"id"_s, "led"_s}}, "led", "");
        row("name alone", {{"name"_s, "led"_s}}, "", "led");
        row("numbers", {{"id"_s, 7}, {"name"_s, 2.5}}, "7", "2.5");
        row("no texts", {{"id"_s, QVariantMap()}, {"name"_s, QVariantList{"led"_s}}}, "", "");
        row("other case", {{"Id"_s, "led"_s}, {"NAME"_s, "led"_s}}, "", "");
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
        QCOMPARE(channel->id() + channel->name() + channel->label() + channel->readCommand(), QString());
        QVERIFY(!channel->value().isValid());
        QCOMPARE(channel->type(), DZrtToolChannel::CeCtUnknown);
        QCOMPARE(channel->objectName(), "DZrtToolChannel"_s);
        QCOMPARE(channel->attributes().size(), 5);
    }

    void takesAttributes_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QVariantMap>("attributes");

        auto const values = everyKindOfValue();
        for (auto const& [name, value] : values) {
            if (value.userType() != QMetaType::QVariantList)
                QTest::addRow("no list: %s", name.constData()) << value << QVariantMap();
        }
        QTest::newRow("no list: an attribute") << QVariant(attribute("colour"_s, "red"_s)) << QVariantMap();

        auto const row = [](char const* name, QVariantList const& list, QVariantMap const& attributes) {
            QTest::newRow(name) << QVariant(list) << attributes;
        };
        QString const colour = "colour"_s;
        QVariantMap const red = attribute(colour, "red"_s);
        QVariantMap const nameless{{QString(), QVariant()}};
        row("none", {}, {});
        row("two", {red, attribute("size"_s, 3)}, {{colour, "red"_s}, {"size"_s, 3}});
        row("the later one counts", {red, attribute("size"_s, 3), attribute(colour, 4)},
            {{colour, 4}, {"size"_s, 3}});
        row("the later one is nothing", {red, QVariantMap{{"id"_s, colour}}}, {{colour, QVariant()}});
        row("number as id", {attribute(7, "red"_s)}, {{"7"_s, "red"_s}});
        row("cases differ", {red, attribute("Colour"_s, 3)}, {{colour, "red"_s}, {"Colour"_s, 3}});
        row("without id", {QVariantMap{{"value"_s, "red"_s}}}, {{QString(), "red"_s}});
        row("structured value", {attribute(colour, QVariantList{1, red})}, {{colour, QVariantList{1, red}}});
        row("empty map", {QVariantMap()}, nameless);
        row("no maps", {QVariant(), 1, "red"_s, QVariantList{red}}, nameless);
        row("a map among others", {1, red, "red"_s}, {{QString(), QVariant()}, {colour, "red"_s}});
        // A type is unknown whatever it is called, and an attribute like any other besides.
        for (auto const& [name, value] : values)
            row("type: " + name, {attribute("type"_s, value)}, {{"type"_s, value}});
        for (auto const* type :
             {"CeCtString", "CeCtBool", "String", "string", "Bool", "bool", "boolean", "2"})
            row(QByteArray("type: ") + type, {attribute("type"_s, QString::fromLatin1(type))},
                {{"type"_s, QString::fromLatin1(type)}});
        row("type in another case", {attribute("Type"_s, "bool"_s)}, {{"Type"_s, "bool"_s}});
    }

    void takesAttributes()
    {
        QFETCH(QVariant, value);
        QFETCH(QVariantMap, attributes);
        auto const channel =
            DZrtToolChannel::create({{"id"_s, "led"_s}, {"name"_s, "Lamp"_s}, {"value"_s, value}});
        QVERIFY(isSame(channel->attributes(), attributes));
        QCOMPARE(channel->id(), "led"_s);
        QCOMPARE(channel->name(), "Lamp"_s);
        QVERIFY(!channel->value().isValid());
        QCOMPARE(channel->type(), DZrtToolChannel::CeCtUnknown);
    }

    void isQmlType()
    {
        QmlObject const document(R"(
            import PlgLibToolZrt 1.0
            DZrtToolChannel {
                property string asked: ''
                property int bool: DZrtToolChannel.CeCtBool
                property var shown: [id, name, label, typeof value, type, typeof readCommand]
                onSigSwitchChannelValue: function(channelId) { asked += channelId }
                function show() { return shown.join() + ',' + bool + asked }
            })");
        auto* const channel = qobject_cast<DZrtToolChannel*>(document.object.get());
        QVERIFY2(channel, qPrintable(document.error));
        QCOMPARE(document.call("show"), ",,,undefined,0,undefined,2"_s);
        channel->setId("led"_s);
        channel->setName("Lamp"_s);
        channel->setLabel("The lamp"_s);
        channel->setType(DZrtToolChannel::CeCtString);
        emit channel->sigSwitchChannelValue("!"_s);
        QCOMPARE(document.call("show"), "led,Lamp,The lamp,undefined,1,undefined,2!"_s);
    }
};

QTEST_GUILESS_MAIN(TestToolChannel)
#include "tst_tool_channel.moc"
