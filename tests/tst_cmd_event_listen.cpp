#include "error_line.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QDataStream>
#include <QTest>

/// The command "startListening" of the shipped library.
class TestCmdEventListen : public QObject
{
    Q_OBJECT

private slots:
    void instruction();
    void everyEventIsPublished();
    void eventValues_data();
    void eventValues();
    void toolIdentity_data();
    void toolIdentity();
    void nullTextIsPublishedAsAText();
    void errorTexts_data();
    void errorTexts();
    void errorCodeKinds_data();
    void errorCodeKinds();
    void infoLine();
    void valuesAreMissing_data();
    void valuesAreMissing();
    void valuesOfAnotherKind_data();
    void valuesOfAnotherKind();
    void goesOnAfterAnInvalidMessage();
    void stops();
};

namespace
{

QString const c_name = QStringLiteral("startListening");
QString const c_values = QStringLiteral("values");
QString const c_eventData = QStringLiteral("eventData");
QString const c_file = QStringLiteral("d_cmd_eventListen.cpp");

QVariantMap eventMessage(QVariantMap const& values)
{
    return {{c_values, values}};
}

QVariantMap identity(QString const& serialNumber, QString const& validityDate, QString const& toolName)
{
    return {{QStringLiteral("serialNumber"), serialNumber},
            {QStringLiteral("validityDate"), validityDate},
            {QStringLiteral("toolName"), toolName}};
}

QVariantMap const c_parameters{{QStringLiteral("serialNumber"), QStringLiteral("SN-7")},
                               {QStringLiteral("validityDate"), QStringLiteral("2027-01-31")},
                               {QStringLiteral("name"), QStringLiteral("left bench")}};

} // namespace

void TestCmdEventListen::instruction()
{
    WorkingCommand listen(c_name, c_parameters);
    QVERIFY(listen.execute());
    QCOMPARE(listen.order.names(), QStringList{QStringLiteral("listenEventsData")});
    QCOMPARE(listen.order.posted[0].instruction.arguments.size(), 0);
}

void TestCmdEventListen::everyEventIsPublished()
{
    WorkingCommand listen(c_name);
    QVERIFY(listen.execute());
    for (int count = 1; count <= 3; ++count)
        QVERIFY(listen.reply(eventMessage({{QStringLiteral("eventCountNo"), count}})));
    QCOMPARE(listen.order.results.size(), 3);
    QCOMPARE(listen.order.posted.size(), 1);
    QCOMPARE(listen.order.finishes.size(), 0);
    QCOMPARE(listen.result(c_eventData).toMap().value(QStringLiteral("eventCountNo")), QVariant(3));
}

void TestCmdEventListen::eventValues_data()
{
    QTest::addColumn<QVariantMap>("values");
    QTest::newRow("empty") << QVariantMap();
    QTest::newRow("as received") << QVariantMap{{QStringLiteral("torque"), 2.5},
                                                {QStringLiteral("status"), 3U}};
    QTest::newRow("error is kept") << QVariantMap{{QStringLiteral("error"), 342}};
    QTest::newRow("unknown error is kept") << QVariantMap{{QStringLiteral("error"), 305}};
    QVariantMap all;
    for (auto const& [name, value] : everyKindOfValue()) {
        if (name != "NaN")
            all.insert(QString::fromLatin1(name), value);
    }
    QTest::newRow("of every kind") << all;
}

void TestCmdEventListen::eventValues()
{
    QFETCH(QVariantMap, values);
    WorkingCommand listen(c_name, c_parameters);
    QVERIFY(listen.execute());
    QVERIFY(listen.reply(eventMessage(values)));
    auto expected = values;
    auto const added =
        identity(QStringLiteral("SN-7"), QStringLiteral("2027-01-31"), QStringLiteral("left bench"));
    for (auto const& key : added.keys())
        expected.insert(key, added.value(key));
    auto const published = listen.result(c_eventData);
    QCOMPARE(published.userType(), int(QMetaType::QVariantMap));
    QCOMPARE(published.toMap().keys(), expected.keys());
    for (auto const& key : expected.keys())
        QVERIFY2(isSame(published.toMap().value(key), expected.value(key)), qPrintable(key));
}

void TestCmdEventListen::toolIdentity_data()
{
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<QVariantMap>("expected");
    QTest::newRow("nothing given") << QVariantMap() << identity({}, {}, {});
    QTest::newRow("all given") << c_parameters
                               << identity(QStringLiteral("SN-7"), QStringLiteral("2027-01-31"),
                                           QStringLiteral("left bench"));
    QTest::newRow("converted to text")
        << QVariantMap{{QStringLiteral("serialNumber"), 7},
                       {QStringLiteral("validityDate"), QDate(2027, 1, 31)},
                       {QStringLiteral("name"), true}}
        << identity(QStringLiteral("7"), QStringLiteral("2027-01-31"), QStringLiteral("true"));
    QTest::newRow("no texts") << QVariantMap{{QStringLiteral("serialNumber"), QVariant()},
                                             {QStringLiteral("validityDate"), QVariantList{1}},
                                             {QStringLiteral("name"), QVariantMap{{QStringLiteral("a"), 1}}}}
                              << identity({}, {}, {});
}

void TestCmdEventListen::toolIdentity()
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
    QVERIFY(
        listen.reply(eventMessage(identity(QStringLiteral("x"), QStringLiteral("y"), QStringLiteral("z")))));
    QVERIFY(isSame(listen.result(c_eventData), QVariant(expected)));
}

// What is no value at all and a text without a character differ for who writes results down.
void TestCmdEventListen::nullTextIsPublishedAsAText()
{
    auto const written = [](QVariant const& value) {
        QByteArray bytes;
        QDataStream stream(&bytes, QIODevice::WriteOnly);
        stream << value;
        return bytes;
    };
    QVariant const null(QVariant::String);
    QVERIFY(written(null) != written(QString()));
    WorkingCommand listen(c_name, {{QStringLiteral("serialNumber"), null},
                                   {QStringLiteral("validityDate"), null},
                                   {QStringLiteral("name"), null}});
    QVERIFY(listen.execute());
    QVERIFY(listen.reply(eventMessage({})));
    QCOMPARE(written(listen.result(c_eventData)), written(identity({}, {}, {})));
}

void TestCmdEventListen::errorTexts_data()
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

void TestCmdEventListen::errorTexts()
{
    QFETCH(int, code);
    QFETCH(QString, text);
    WorkingCommand listen(c_name, c_parameters);
    QVERIFY(listen.execute());
    MessageCapture const messages;
    QVERIFY(listen.reply(eventMessage({{QStringLiteral("error"), code}})));

    auto const infos = messages.of(QtInfoMsg);
    QCOMPARE(infos.size(), text.isEmpty() ? 0 : 1);
    QCOMPARE(messages.lines.size(), infos.size());
    if (!infos.isEmpty())
        QVERIFY(infos[0].text.contains(QStringLiteral(" %1 :  \"%2\"").arg(code).arg(text)));
    QVERIFY(isSame(listen.result(c_eventData).toMap().value(QStringLiteral("error")), QVariant(code)));
}

void TestCmdEventListen::errorCodeKinds_data()
{
    QTest::addColumn<QVariant>("code");
    QTest::addColumn<bool>("isLogged");
    QTest::newRow("text") << QVariant(QStringLiteral("342")) << true;
    QTest::newRow("double") << QVariant(342.0) << true;
    QTest::newRow("fraction is cut") << QVariant(342.9) << true;
    QTest::newRow("unsigned") << QVariant(342U) << true;
    QTest::newRow("bytes") << QVariant(QByteArray("342")) << true;
    QTest::newRow("garbage") << QVariant(QStringLiteral("E342")) << false;
    QTest::newRow("NaN") << QVariant(qQNaN()) << false;
    QTest::newRow("list") << QVariant(QVariantList{342}) << false;
    QTest::newRow("invalid") << QVariant() << false;
}

void TestCmdEventListen::errorCodeKinds()
{
    QFETCH(QVariant, code);
    QFETCH(bool, isLogged);
    WorkingCommand listen(c_name, c_parameters);
    QVERIFY(listen.execute());
    MessageCapture const messages;
    QVERIFY(listen.reply(eventMessage({{QStringLiteral("error"), code}})));
    QCOMPARE(messages.of(QtInfoMsg).size(), isLogged ? 1 : 0);
    QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
    QCOMPARE(listen.order.results.size(), 1);
    QCOMPARE(listen.result(c_eventData).toMap().value(QStringLiteral("error")).userType(), code.userType());
}

void TestCmdEventListen::infoLine()
{
    WorkingCommand named(c_name, c_parameters);
    WorkingCommand nameless(c_name);
    QVERIFY(named.execute());
    QVERIFY(nameless.execute());
    MessageCapture const messages;
    QVERIFY(named.reply(eventMessage({{QStringLiteral("error"), 342}})));
    QVERIFY(nameless.reply(eventMessage({{QStringLiteral("error"), 300}})));
    auto const infos = messages.of(QtInfoMsg);
    QCOMPARE(infos.size(), 2);
    QCOMPARE(
        infos[0].text,
        QStringLiteral("ZRT screwdriver  \"left bench\"  error code  342 :  \"Holding time max angle\""));
    QCOMPARE(infos[1].text,
             QStringLiteral("ZRT screwdriver  \"\"  error code  300 :  \"Run time limit (Forward)\""));
    QCOMPARE(infos[0].category, QByteArray("default"));
    QVERIFY(infos[0].file.isNull());
    QVERIFY(infos[0].function.isNull());
    QCOMPARE(infos[0].line, 0);
}

void TestCmdEventListen::valuesAreMissing_data()
{
    QTest::addColumn<QVariantMap>("reply");
    QTest::newRow("empty") << QVariantMap();
    QTest::newRow("error reply") << QVariantMap{{QStringLiteral("error"), 342}};
    QTest::newRow("other case") << QVariantMap{{QStringLiteral("Values"), QVariantMap()}};
}

void TestCmdEventListen::valuesAreMissing()
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

void TestCmdEventListen::valuesOfAnotherKind_data()
{
    QTest::addColumn<QVariant>("values");
    for (auto const& [name, value] : everyKindOfValue()) {
        if (value.userType() != QMetaType::QVariantMap)
            QTest::newRow(name.constData()) << value;
    }
}

void TestCmdEventListen::valuesOfAnotherKind()
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
                 + QStringLiteral(", received type : %1 , values = %2")
                       .arg(QLatin1String(values.typeName()), shown.trimmed()));
    QCOMPARE(ErrorLine::only(messages).line, 83);
    QCOMPARE(ErrorLine::only(messages).file, c_file);
    QCOMPARE(messages.lines.size(), 1);
    QCOMPARE(listen.order.results.size(), 0);
    QVERIFY(!listen.result(c_eventData).isValid());
}

void TestCmdEventListen::goesOnAfterAnInvalidMessage()
{
    WorkingCommand listen(c_name);
    QVERIFY(listen.execute());
    MessageCapture const messages;
    QVERIFY(!listen.reply({}));
    QVERIFY(listen.reply({{c_values, 1}}));
    QVERIFY(listen.reply(eventMessage({{QStringLiteral("eventCountNo"), 1}})));
    QCOMPARE(listen.order.results.size(), 1);
    QCOMPARE(listen.order.finishes.size(), 0);
}

void TestCmdEventListen::stops()
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

QTEST_GUILESS_MAIN(TestCmdEventListen)
#include "tst_cmd_event_listen.moc"
