#include "working_command.h"

#include <QTranslator>

#include <limits>

namespace
{

QString const c_mode = "GetPresetInfo_Control_Mode"_s;
QString const c_torque = "GetPresetInfo_Target_torque"_s;
QString const c_angle = "GetPresetInfo_Target_Angle"_s;

QVariantMap replyWith(QVariant const& preset)
{
    return {{"presetData"_s, preset}};
}

/// What one value of a preset is published as.
QString publishedFor(char const* key, QVariant const& value, QString const& publishedKey)
{
    WorkingCommand get("getPresetInfo"_s);
    get.execute();
    get.reply(replyWith(QVariantMap{{QString::fromLatin1(key), value}}));
    return textOf(get.object().result("presetData"_s).toMap().value(publishedKey));
}

} // namespace

/// The command "getPresetInfo" of the shipped library.
class TestCmdGetPresetInfo : public QObject
{
    Q_OBJECT

private slots:
    void instruction_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QString>("preset");
        QTest::newRow("a number") << QVariantMap{{"prog"_s, 3}} << "3"_s;
        QTest::newRow("a text stays one") << QVariantMap{{"prog"_s, "3"_s}} << "\"3\""_s;
        QTest::newRow("the other command's name") << QVariantMap{{"program"_s, 3}} << "\"\""_s;
    }

    void instruction()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QString, preset);
        QCOMPARE(WorkingCommand("getPresetInfo"_s, parameters).execute(),
                 "getPresetData {preset: %1}"_s.arg(preset));
    }

    void reply_data()
    {
        addReplyColumns();
        addReply("the keys become the operator's",
                 replyWith(QVariantMap{{"torque"_s, 250}, {"targetAngle"_s, 90}, {"tcamActm"_s, 1}}),
                 "presetData = {GetPresetInfo_Control_Mode: \"GetPresetInfo_Angle\", "
                 "GetPresetInfo_Target_Angle: 90, GetPresetInfo_Target_torque: double 2.5}; ended well"_s);
        addReply("missing keys count as 0", replyWith(QVariantMap{{"speed"_s, 400}}),
                 "presetData = {GetPresetInfo_Control_Mode: \"GetPresetInfo_Torque\", "
                 "GetPresetInfo_Target_Angle: 0, GetPresetInfo_Target_torque: double 0}; ended well"_s);
        addReply("an empty preset has no keys", replyWith(QVariantMap()), "presetData = {}; ended well"_s);
        addReply("a preset that is no map fails the order", replyWith(QVariantHash()),
                 "ERROR: Reply data format not managed; failed; refused"_s);
        addReply("a reply without a preset fails the order", {{"preset"_s, QVariantMap()}},
                 "ERROR: Invalid reply format; failed; refused"_s);
    }

    void reply()
    {
        QFETCH(QVariantMap, reply);
        QFETCH(QString, course);
        WorkingCommand get("getPresetInfo"_s);
        get.execute();
        QCOMPARE(get.reply(reply), course);
    }

    void mode()
    {
        for (QVariant const& torque : {QVariant(0), QVariant(0.9), QVariant("0"_s), QVariant("torque"_s)})
            QCOMPARE(publishedFor("tcamActm", torque, c_mode), "\"GetPresetInfo_Torque\""_s);
        for (QVariant const& angle : {QVariant(1), QVariant(2), QVariant(-1), QVariant("1"_s)})
            QCOMPARE(publishedFor("tcamActm", angle, c_mode), "\"GetPresetInfo_Angle\""_s);
    }

    void angle()
    {
        QCOMPARE(publishedFor("targetAngle", -360, c_angle), "-360"_s);
        QCOMPARE(publishedFor("targetAngle", "90"_s, c_angle), "90"_s);
        QCOMPARE(publishedFor("targetAngle", 90.9, c_angle), "90"_s);
        QCOMPARE(publishedFor("targetAngle", 1e10, c_angle), "0"_s);
    }

    void torque_data()
    {
        QTest::addColumn<QVariant>("hundredths");
        QTest::addColumn<double>("expected");
        QTest::newRow("a fraction is cut") << QVariant(1234.7) << 12.34;
        QTest::newRow("a negative fraction is cut") << QVariant(-1234.7) << -12.34;
        QTest::newRow("a float is cut") << QVariant(1234.75F) << 12.34;
        QTest::newRow("the quotient is not rounded") << QVariant(1) << 0.01;
        QTest::newRow("the largest double") << QVariant(2147483647.9) << 21474836.47;
        QTest::newRow("the smallest double") << QVariant(-2147483648.9) << -21474836.48;
        QTest::newRow("too large") << QVariant(2147483648.0) << 0.0;
        QTest::newRow("too small") << QVariant(-2147483649.0) << 0.0;
        QTest::newRow("NaN") << QVariant(qQNaN()) << 0.0;
        QTest::newRow("infinity") << QVariant(qInf()) << 0.0;
        // Anything but a double or float is what Qt makes of it, whatever that is.
        QVector<QPair<char const*, QVariant>> const others{
            {"a text", "1234"_s},
            {"a fraction as a text", "1234.7"_s},
            {"too large an integer", Q_INT64_C(4294967297)},
            {"too large an unsigned", 4294967295U},
            {"the largest unsigned", std::numeric_limits<qulonglong>::max()},
            {"unsigned long", QVariant::fromValue<ulong>(250)},
            {"JSON number", QJsonValue(1234.7)},
            {"list", QVariantList{250}},
        };
        for (auto const& [name, value] : others)
            QTest::newRow(name) << value << value.toInt() / 100.0;
    }

    void torque()
    {
        QFETCH(QVariant, hundredths);
        QFETCH(double, expected);
        // To the last bit: the quotient is what a division gives.
        QCOMPARE(publishedFor("torque", hundredths, c_torque), textOf(expected));
    }

    // What counts is the language at the arrival of the reply.
    void translated()
    {
        WorkingCommand torque("getPresetInfo"_s);
        WorkingCommand angle("getPresetInfo"_s);
        torque.execute();
        angle.execute();
        QTranslator translator;
        QVERIFY(translator.load(QStringLiteral(PRESET_INFO_TRANSLATION)));
        QVERIFY(QCoreApplication::installTranslator(&translator));
        QCOMPARE(
            torque.reply(replyWith(QVariantMap{{"torque"_s, 250}, {"targetAngle"_s, 90}})),
            "presetData = {Regelung: \"Drehmoment\", Zieldrehmoment: double 2.5, Zielwinkel: 90}; ended well"_s);
        QVERIFY(angle.reply(replyWith(QVariantMap{{"tcamActm"_s, 1}})).contains("Regelung: \"Winkel\""_s));
        QVERIFY(QCoreApplication::removeTranslator(&translator));
        QCOMPARE(publishedFor("torque", 1, c_torque), "double 0.01"_s);
    }
};

QTEST_GUILESS_MAIN(TestCmdGetPresetInfo)
#include "tst_cmd_get_preset_info.moc"
