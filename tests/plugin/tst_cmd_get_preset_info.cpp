#include "error_line.h"
#include "literals.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QCoreApplication>
#include <QTest>
#include <QTranslator>

#include <limits>

namespace
{

QString const c_name = "getPresetInfo"_s;
QString const c_presetData = "presetData"_s;
QString const c_mode = "GetPresetInfo_Control_Mode"_s;
QString const c_torque = "GetPresetInfo_Target_torque"_s;
QString const c_angle = "GetPresetInfo_Target_Angle"_s;

QVariant publishedFor(QVariantMap const& preset)
{
    WorkingCommand get(c_name);
    if (!get.execute() || !get.reply({{c_presetData, preset}}) || get.order.results.size() != 1)
        return "not published"_s;
    return get.result(c_presetData);
}

QVariant publishedFor(QVariantMap const& preset, QString const& key)
{
    return publishedFor(preset).toMap().value(key);
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
        QTest::addColumn<QVariant>("preset");
        QTest::newRow("nothing given") << QVariantMap() << QVariant(QString());
        QTest::newRow("number") << QVariantMap{{"prog"_s, 3}} << QVariant(3);
        QTest::newRow("text") << QVariantMap{{"prog"_s, "3"_s}} << QVariant("3"_s);
        QTest::newRow("the other command's name") << QVariantMap{{"program"_s, 3}} << QVariant(QString());
    }

    void instruction()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QVariant, preset);
        WorkingCommand get(c_name, parameters);
        QVERIFY(get.execute());
        QCOMPARE(get.order.names(), QStringList{"getPresetData"_s});
        auto const arguments = get.order.posted[0].instruction.arguments;
        QCOMPARE(arguments.size(), 1);
        QVERIFY(isSame(arguments.value("preset"_s), preset));
    }

    void mode_data()
    {
        QTest::addColumn<QVariant>("selector");
        QTest::addColumn<QString>("expected");
        QString const torque = "GetPresetInfo_Torque"_s;
        QString const angle = "GetPresetInfo_Angle"_s;
        QTest::newRow("0") << QVariant(0) << torque;
        QTest::newRow("1") << QVariant(1) << angle;
        QTest::newRow("2") << QVariant(2) << angle;
        QTest::newRow("-1") << QVariant(-1) << angle;
        QTest::newRow("fraction is cut") << QVariant(0.9) << torque;
        QTest::newRow("text 0") << QVariant("0"_s) << torque;
        QTest::newRow("text 1") << QVariant("1"_s) << angle;
        QTest::newRow("true") << QVariant(true) << angle;
        QTest::newRow("garbage") << QVariant("torque"_s) << torque;
        QTest::newRow("invalid") << QVariant() << torque;
    }

    void mode()
    {
        QFETCH(QVariant, selector);
        QFETCH(QString, expected);
        QVERIFY(isSame(publishedFor({{"tcamActm"_s, selector}}, c_mode), QVariant(expected)));
    }

    void torque_data()
    {
        QTest::addColumn<QVariant>("hundredths");
        QTest::addColumn<double>("expected");
        QTest::newRow("250") << QVariant(250) << 2.5;
        QTest::newRow("unsigned") << QVariant(250U) << 2.5;
        QTest::newRow("fraction is cut") << QVariant(1234.7) << 12.34;
        QTest::newRow("negative fraction is cut") << QVariant(-1234.7) << -12.34;
        QTest::newRow("float is cut") << QVariant(1234.75F) << 12.34;
        QTest::newRow("quotient is not rounded") << QVariant(1) << 0.01;
        QTest::newRow("largest") << QVariant(std::numeric_limits<int>::max()) << 21474836.47;
        QTest::newRow("smallest") << QVariant(std::numeric_limits<int>::min()) << -21474836.48;
        QTest::newRow("largest as a double") << QVariant(2147483647.9) << 21474836.47;
        QTest::newRow("smallest as a double") << QVariant(-2147483648.9) << -21474836.48;
        QTest::newRow("too large") << QVariant(2147483648.0) << 0.0;
        QTest::newRow("too small") << QVariant(-2147483649.0) << 0.0;
        QTest::newRow("NaN") << QVariant(qQNaN()) << 0.0;
        QTest::newRow("infinity") << QVariant(qInf()) << 0.0;
        QTest::newRow("minus infinity") << QVariant(-qInf()) << 0.0;
        // Anything but a double or float is what Qt makes of it, whatever that is.
        QList<QPair<char const*, QVariant>> const others{
            {"text", "1234"_s},
            {"fraction as text", "1234.7"_s},
            {"too large a text", "4294967297"_s},
            {"garbage", "strong"_s},
            {"true", true},
            {"too large an integer", Q_INT64_C(4294967297)},
            {"too small an integer", Q_INT64_C(-4294967297)},
            {"too large an unsigned", 4294967295U},
            {"an int behind 32 bits", Q_UINT64_C(4294967546)},
            {"largest unsigned", std::numeric_limits<qulonglong>::max()},
            {"unsigned long", QVariant::fromValue<ulong>(250)},
            {"JSON number", QJsonValue(1234.7)},
            {"JSON text", QJsonValue("1234"_s)},
            {"list", QVariantList{250}},
            {"invalid", QVariant()},
        };
        for (auto const& [name, value] : others)
            QTest::newRow(name) << value << value.toInt() / 100.0;
    }

    void torque()
    {
        QFETCH(QVariant, hundredths);
        QFETCH(double, expected);
        QVariant const torque = publishedFor({{"torque"_s, hundredths}}, c_torque);
        QCOMPARE(torque.userType(), int(QMetaType::Double));
        // To the last bit: the quotient is what a division gives.
        QVERIFY(torque.toDouble() == expected);
    }

    void angle_data()
    {
        QTest::addColumn<QVariant>("degrees");
        QTest::addColumn<int>("expected");
        QTest::newRow("90") << QVariant(90) << 90;
        QTest::newRow("negative") << QVariant(-360) << -360;
        QTest::newRow("text") << QVariant("90"_s) << 90;
        QTest::newRow("fraction is cut") << QVariant(90.9) << 90;
        QTest::newRow("too large") << QVariant(1e10) << 0;
        QTest::newRow("garbage") << QVariant("right"_s) << 0;
    }

    void angle()
    {
        QFETCH(QVariant, degrees);
        QFETCH(int, expected);
        QVERIFY(isSame(publishedFor({{"targetAngle"_s, degrees}}, c_angle), QVariant(expected)));
    }

    void unrelatedKeys()
    {
        QVariantMap const expected{{c_mode, "GetPresetInfo_Torque"_s}, {c_torque, 0.0}, {c_angle, 0}};
        QVERIFY(isSame(publishedFor({{"speed"_s, 400}}), QVariant(expected)));
        QVERIFY(isSame(publishedFor({{"speed"_s, 400}}, c_torque), QVariant(0.0)));
        QVERIFY(isSame(publishedFor({{"speed"_s, 400}}, c_angle), QVariant(0)));
    }

    void emptyPreset() { QVERIFY(isSame(publishedFor({}), QVariant(QVariantMap()))); }

    void translated()
    {
        WorkingCommand torque(c_name);
        WorkingCommand angle(c_name);
        QVERIFY(torque.execute());
        QVERIFY(angle.execute());

        // Installed while the replies are on their way: what counts is the language at their arrival.
        QTranslator translator;
        QVERIFY(translator.load(QStringLiteral(PRESET_INFO_TRANSLATION)));
        QVERIFY(QCoreApplication::installTranslator(&translator));
        QVERIFY(torque.reply({{c_presetData, QVariantMap{{"torque"_s, 250}, {"targetAngle"_s, 90}}}}));
        QVERIFY(angle.reply({{c_presetData, QVariantMap{{"tcamActm"_s, 1}}}}));
        QVERIFY(QCoreApplication::removeTranslator(&translator));

        QVariantMap const expected{
            {"Regelung"_s, "Drehmoment"_s}, {"Zieldrehmoment"_s, 2.5}, {"Zielwinkel"_s, 90}};
        QVERIFY(isSame(torque.result(c_presetData), QVariant(expected)));
        QCOMPARE(angle.result(c_presetData).toMap().value("Regelung"_s).toString(), "Winkel"_s);
        QCOMPARE(publishedFor({{"torque"_s, 1}}).toMap().firstKey(), c_mode);
    }

    void presetOfAnotherKind_data()
    {
        QTest::addColumn<QVariant>("preset");
        for (auto const& [name, value] : everyKindOfValue())
            QTest::newRow(name.constData()) << value;
    }

    void presetOfAnotherKind()
    {
        QFETCH(QVariant, preset);
        MessageCapture const messages;
        WorkingCommand get(c_name);
        QVERIFY(get.execute());
        bool const isMap = preset.userType() == QMetaType::QVariantMap;
        QCOMPARE(get.reply({{c_presetData, preset}}), isMap);
        QCOMPARE(get.order.results.size(), isMap ? 1 : 0);
        QCOMPARE(messages.of(QtCriticalMsg).size(), isMap ? 0 : 1);
        if (!isMap) {
            QCOMPARE(ErrorLine::only(messages).message, c_unmanagedFormat);
            QCOMPARE(ErrorLine::only(messages).file, "d_cmd_getPresetInfo.cpp"_s);
        }
    }

    void presetIsMissing()
    {
        MessageCapture const messages;
        WorkingCommand get(c_name);
        QVERIFY(get.execute());
        QVERIFY(!get.reply({{"preset"_s, QVariantMap{{"torque"_s, 250}}}}));
        QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
        QCOMPARE(ErrorLine::only(messages).file, "d_cmd_getPresetInfo.cpp"_s);
        QCOMPARE(get.order.results.size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestCmdGetPresetInfo)
#include "tst_cmd_get_preset_info.moc"
