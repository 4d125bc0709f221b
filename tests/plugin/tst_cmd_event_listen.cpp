#include "error_line.h"
#include "literals.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QDataStream>
#include <QTest>

namespace
{

QString const c_name = "startListening"_s;
QString const c_values = "values"_s;
QString const c_eventData = "eventData"_s;
QString const c_file = "d_cmd_eventListen.cpp"_s;

QVariantMap eventMessage(QVariantMap const& values)
{
    return {{c_values, values}};
}

QVariantMap identity(QString const& serialNumber, QString const& validityDate, QString const& toolName)
{
    return {{"serialNumber"_s, serialNumber}, {"validityDate"_s, validityDate}, {"toolName"_s, toolName}};
}

QVariantMap const c_parameters{
    {"serialNumber"_s, "SN-7"_s}, {"validityDate"_s, "2027-01-31"_s}, {"name"_s, "left bench"_s}};

} // namespace

/// The command "startListening" of the shipped library.
class TestCmdEventListen : public QObject
{
    Q_OBJECT

private slots:
    void instruction()
    {
        WorkingCommand listen(c_name, c_parameters);
        QVERIFY(listen.execute());
        QCOMPARE(listen.order.names(), QStringList{"listenEventsData"_s});
        QCOMPARE(listen.order.posted[0].instruction.arguments.size(), 0);
    }

    void everyEventIsPublished()
    {
        WorkingCommand listen(c_name);
        QVERIFY(listen.execute());
        for (int count = 1; count <= 3; ++count)
            QVERIFY(listen.reply(eventMessage({{"eventCountNo"_s, count}})));
        QCOMPARE(listen.order.results.size(), 3);
        QCOMPARE(listen.order.posted.size(), 1);
        QCOMPARE(listen.order.finishes.size(), 0);
        QCOMPARE(listen.result(c_eventData).toMap().value("eventCountNo"_s), QVariant(3));
    }

    void eventValues_data()
    {
        QTest::addColumn<QVariantMap>("values");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("as received") << QVariantMap{{"torque"_s, 2.5}, {"status"_s, 3U}};
        QTest::newRow("error is kept") << QVariantMap{{"error"_s, 342}};
        QTest::newRow("unknown error is kept") << QVariantMap{{"error"_s, 305}};
        QVariantMap all;
        for (auto const& [name, value] : everyKindOfValue()) {
            if (name != "NaN")
                all.insert(QString::fromLatin1(name), value);
        }
        QTest::newRow("of every kind") << all;
    }

    void eventValues()
    {
        QFETCH(QVariantMap, values);
        WorkingCommand listen(c_name, c_parameters);
        QVERIFY(listen.execute());
        QVERIFY(listen.reply(eventMessage(values)));
        auto expected = values;
        auto const added = identity("SN-7"_s, "2027-01-31"_s, "left bench"_s);
        for (auto const& key : added.keys())
            expected.insert(key, added.value(key));
        auto const published = listen.result(c_eventData);
        QCOMPARE(published.userType(), int(QMetaType::QVariantMap));
        QCOMPARE(published.toMap().keys(), expected.keys());
        for (auto const& key : expected.keys())
            QVERIFY2(isSame(published.toMap().value(key), expected.value(key)), qPrintable(key));
    }

    void toolIdentity_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QVariantMap>("expected");
        QTest::newRow("nothing given") << QVariantMap() << identity({}, {}, {});
        QTest::newRow("all given") << c_parameters << identity("SN-7"_s, "2027-01-31"_s, "left bench"_s);
        QTest::newRow("converted to text")
            << QVariantMap{{"serialNumber"_s, 7}, {"validityDate"_s, QDate(2027, 1, 31)}, {"name"_s, true}}
            << identity("7"_s, "2027-01-31"_s, "true"_s);
        QTest::newRow("no texts") << QVariantMap{{"serialNumber"_s, QVariant()},
                                                 {"validityDate"_s, QVariantList{1}},
                                                 {"name"_s, QVariantMap{{"a"_s, 1}}}}
                                  << identity({}, {}, {});
    }

    void toolIdentity()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QVariantMap, expected);
        WorkingCommand listen(c_name, parameters);
        QVERIFY(listen.execute());
        QVERIFY(listen.reply(eventMessage({})));
        QVERIFY(isSame(listen.result(c_eventData), QVariant(expected)));
        for (auto const& key : expected.keys())
            QCOMPARE(listen.result(c_eventData).toMap().value(key).userType(), int(QMetaType::QString));

        // What the device says of the tool's identity does not count.
        QVERIFY(listen.reply(eventMessage(identity("x"_s, "y"_s, "z"_s))));
        QVERIFY(isSame(listen.result(c_eventData), QVariant(expected)));
    }

    // What is no value at all and a text without a character differ for who writes results down.
    void nullTextIsPublishedAsAText()
    {
        auto const written = [](QVariant const& value) {
            QByteArray bytes;
            QDataStream stream(&bytes, QIODevice::WriteOnly);
            stream << value;
            return bytes;
        };
        QVariant const null(QVariant::String);
        QVERIFY(written(null) != written(QString()));
        WorkingCommand listen(c_name, {{"serialNumber"_s, null}, {"validityDate"_s, null}, {"name"_s, null}});
        QVERIFY(listen.execute());
        QVERIFY(listen.reply(eventMessage({})));
        QCOMPARE(written(listen.result(c_eventData)), written(identity({}, {}, {})));
    }

    void errorTexts_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text");
        QMap<int, char const*> const texts{
            {300, "Run time limit (Forward)"},
            {301, "Run time limit (Reverse)"},
            {302, "Model setting error"},
            {303, "Model cancel"},
            {304, "Motor stall by loosening failure"},
            {309, "Bit socket tray"},
            {310, "Time over in screw counting"},
            {311, "Screw missing"},
            {330, "Min Angle error"},
            {331, "Target angle setting error"},
            {332, "Angle over"},
            {333, "No torque complete"},
            {334, "Engaging torque detection fail"},
            {335, "Converted torque error"},
            {336, "Over torque error"},
            {337, "Torque up at free speed"},
            {338, "Thread tap max torque error"},
            {339, "Thread tap min max range error"},
            {342, "Holding time max angle"},
        };
        QCOMPARE(texts.size(), 19);
        for (int code = 295; code <= 345; ++code)
            QTest::newRow(QByteArray::number(code).constData())
                << code << QString::fromLatin1(texts.value(code, ""));
        QTest::newRow("0") << 0 << QString();
        QTest::newRow("-342") << -342 << QString();
    }

    void errorTexts()
    {
        QFETCH(int, code);
        QFETCH(QString, text);
        WorkingCommand listen(c_name, c_parameters);
        QVERIFY(listen.execute());
        MessageCapture const messages;
        QVERIFY(listen.reply(eventMessage({{"error"_s, code}})));

        auto const infos = messages.of(QtInfoMsg);
        QCOMPARE(infos.size(), text.isEmpty() ? 0 : 1);
        QCOMPARE(messages.lines.size(), infos.size());
        if (!infos.isEmpty())
            QVERIFY(infos[0].text.contains(" %1 :  \"%2\""_s.arg(code).arg(text)));
        QVERIFY(isSame(listen.result(c_eventData).toMap().value("error"_s), QVariant(code)));
    }

    void errorCodeKinds_data()
    {
        QTest::addColumn<QVariant>("code");
        QTest::addColumn<bool>("isLogged");
        QTest::newRow("text") << QVariant("342"_s) << true;
        QTest::newRow("double") << QVariant(342.0) << true;
        QTest::newRow("fraction is cut") << QVariant(342.9) << true;
        QTest::newRow("unsigned") << QVariant(342U) << true;
        QTest::newRow("bytes") << QVariant(QByteArray("342")) << true;
        QTest::newRow("garbage") << QVariant("E342"_s) << false;
        QTest::newRow("NaN") << QVariant(qQNaN()) << false;
        QTest::newRow("list") << QVariant(QVariantList{342}) << false;
        QTest::newRow("invalid") << QVariant() << false;
    }

    void errorCodeKinds()
    {
        QFETCH(QVariant, code);
        QFETCH(bool, isLogged);
        WorkingCommand listen(c_name, c_parameters);
        QVERIFY(listen.execute());
        MessageCapture const messages;
        QVERIFY(listen.reply(eventMessage({{"error"_s, code}})));
        QCOMPARE(messages.of(QtInfoMsg).size(), isLogged ? 1 : 0);
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
        QCOMPARE(listen.order.results.size(), 1);
        QCOMPARE(listen.result(c_eventData).toMap().value("error"_s).userType(), code.userType());
    }

    void infoLine()
    {
        WorkingCommand named(c_name, c_parameters);
        WorkingCommand nameless(c_name);
        QVERIFY(named.execute());
        QVERIFY(nameless.execute());
        MessageCapture const messages;
        QVERIFY(named.reply(eventMessage({{"error"_s, 342}})));
        QVERIFY(nameless.reply(eventMessage({{"error"_s, 300}})));
        auto const infos = messages.of(QtInfoMsg);
        QCOMPARE(infos.size(), 2);
        QCOMPARE(infos[0].text,
                 "ZRT screwdriver  \"left bench\"  error code  342 :  \"Holding time max angle\""_s);
        QCOMPARE(infos[1].text, "ZRT screwdriver  \"\"  error code  300 :  \"Run time limit (Forward)\""_s);
        QCOMPARE(infos[0].category, QByteArray("default"));
        QVERIFY(infos[0].file.isNull());
        QVERIFY(infos[0].function.isNull());
        QCOMPARE(infos[0].line, 0);
    }

    void valuesAreMissing_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("error reply") << QVariantMap{{"error"_s, 342}};
        QTest::newRow("other case") << QVariantMap{{"Values"_s, QVariantMap()}};
    }

    void valuesAreMissing()
    {
        QFETCH(QVariantMap, reply);
        WorkingCommand listen(c_name);
        QVERIFY(listen.execute());
        MessageCapture const messages;
        QVERIFY(!listen.reply(reply));
        QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
        QCOMPARE(ErrorLine::only(messages).line, 87);
        QCOMPARE(ErrorLine::only(messages).file, c_file);
        QCOMPARE(messages.lines.size(), 1);
        QCOMPARE(listen.order.results.size(), 0);
    }

    void valuesOfAnotherKind_data()
    {
        QTest::addColumn<QVariant>("values");
        for (auto const& [name, value] : everyKindOfValue()) {
            if (value.userType() != QMetaType::QVariantMap)
                QTest::newRow(name.constData()) << value;
        }
    }

    void valuesOfAnotherKind()
    {
        QFETCH(QVariant, values);
        WorkingCommand listen(c_name);
        QVERIFY(listen.execute());
        MessageCapture const messages;
        QVERIFY(listen.reply({{c_values, values}}));
        // The value as the log shows it.
        QString shown;
        QDebug(&shown).nospace() << values;
        QCOMPARE(ErrorLine::only(messages).message,
                 c_unmanagedFormat
                     + ", received type : %1 , values = %2"_s.arg(QLatin1String(values.typeName()),
                                                                  shown.trimmed()));
        QCOMPARE(ErrorLine::only(messages).line, 83);
        QCOMPARE(ErrorLine::only(messages).file, c_file);
        QCOMPARE(messages.lines.size(), 1);
        QCOMPARE(listen.order.results.size(), 0);
        QVERIFY(!listen.result(c_eventData).isValid());
    }

    void goesOnAfterAnInvalidMessage()
    {
        WorkingCommand listen(c_name);
        QVERIFY(listen.execute());
        MessageCapture const messages;
        QVERIFY(!listen.reply({}));
        QVERIFY(listen.reply({{c_values, 1}}));
        QVERIFY(listen.reply(eventMessage({{"eventCountNo"_s, 1}})));
        QCOMPARE(listen.order.results.size(), 1);
        QCOMPARE(listen.order.finishes.size(), 0);
    }

    void stops()
    {
        WorkingCommand listen(c_name);
        QVERIFY(listen.execute());
        bool success = true;
        QVERIFY(listen.command->finishTheCommand(success));
        QVERIFY(success);
        QCOMPARE(listen.order.withdrawn, QList<quint64>{listen.order.posted[0].id});
        QVERIFY(!listen.reply(eventMessage({})));
        QCOMPARE(listen.order.results.size(), 0);
        QCOMPARE(listen.order.dropped.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestCmdEventListen)
#include "tst_cmd_event_listen.moc"
