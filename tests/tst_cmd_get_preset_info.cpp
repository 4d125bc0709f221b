#include "error_line.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QCoreApplication>
#include <QTest>
#include <QTranslator>

#include <limits>

/// The command "getPresetInfo" of the shipped library.
class TestCmdGetPresetInfo : public QObject
{
    Q_OBJECT

private slots:
    void instruction_data();
    void instruction();
    void mode_data();
    void mode();
    void torque_data();
    void torque();
    void angle_data();
    void angle();
    void unrelatedKeys();
    void emptyPreset();
    void translated();
    void presetOfAnotherKind_data();
    void presetOfAnotherKind();
    void presetIsMissing();
};

namespace
{

QString const c_name = QStringLiteral("getPresetInfo");
QString const c_presetData = QStringLiteral("presetData");
QString const c_mode = QStringLiteral("GetPresetInfo_Control_Mode");
QString const c_torque = QStringLiteral("GetPresetInfo_Target_torque");
QString const c_angle = QStringLiteral("GetPresetInfo_Target_Angle");

QVariant publishedFor(QVariantMap const& preset)
{
    WorkingCommand get(c_name);
    if (!get.execute() || !get.reply({{c_presetData, preset}}) || get.order.results.size() != 1)
        return QStringLiteral("not published");
    return get.result(c_presetData);
}

QVariant publishedFor(QVariantMap const& preset, QString const& key)
{
    return publishedFor(preset).toMap().value(key);
}

} // namespace

void TestCmdGetPresetInfo::instruction_data()
{
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<QVariant>("preset");
    QTest::newRow("nothing given") << QVariantMap() << QVariant(QString());
    QTest::newRow("number") << QVariantMap{{QStringLiteral("prog"), 3}} << QVariant(3);
    QTest::newRow("text") << QVariantMap{{QStringLiteral("prog"), QStringLiteral("3")}}
                          << QVariant(QStringLiteral("3"));
    QTest::newRow("the other command's name")
        << QVariantMap{{QStringLiteral("program"), 3}} << QVariant(QString());
}

void TestCmdGetPresetInfo::instruction()
{
    QFETCH(QVariantMap, parameters);
    QFETCH(QVariant, preset);
    WorkingCommand get(c_name, parameters);
    QVERIFY(get.execute());
    QCOMPARE(get.order.names(), QStringList{QStringLiteral("getPresetData")});
    auto const arguments = get.order.posted[0].instruction.arguments;
    QCOMPARE(arguments.size(), 1);
    QVERIFY(isSame(arguments.value(QStringLiteral("preset")), preset));
}

void TestCmdGetPresetInfo::mode_data()
{
    QTest::addColumn<QVariant>("selector");
    QTest::addColumn<QString>("expected");
    QString const torque = QStringLiteral("GetPresetInfo_Torque");
    QString const angle = QStringLiteral("GetPresetInfo_Angle");
    QTest::newRow("0") << QVariant(0) << torque;
    QTest::newRow("1") << QVariant(1) << angle;
    QTest::newRow("2") << QVariant(2) << angle;
    QTest::newRow("-1") << QVariant(-1) << angle;
    QTest::newRow("fraction is cut") << QVariant(0.9) << torque;
    QTest::newRow("text 0") << QVariant(QStringLiteral("0")) << torque;
    QTest::newRow("text 1") << QVariant(QStringLiteral("1")) << angle;
    QTest::newRow("true") << QVariant(true) << angle;
    QTest::newRow("garbage") << QVariant(QStringLiteral("torque")) << torque;
    QTest::newRow("invalid") << QVariant() << torque;
}

void TestCmdGetPresetInfo::mode()
{
    QFETCH(QVariant, selector);
    QFETCH(QString, expected);
    QVERIFY(isSame(publishedFor({{QStringLiteral("tcamActm"), selector}}, c_mode), QVariant(expected)));
}

void TestCmdGetPresetInfo::torque_data()
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
        {"text", QStringLiteral("1234")},
        {"fraction as text", QStringLiteral("1234.7")},
        {"too large a text", QStringLiteral("4294967297")},
        {"garbage", QStringLiteral("strong")},
        {"true", true},
        {"too large an integer", Q_INT64_C(4294967297)},
        {"too small an integer", Q_INT64_C(-4294967297)},
        {"too large an unsigned", 4294967295U},
        {"an int behind 32 bits", Q_UINT64_C(4294967546)},
        {"largest unsigned", std::numeric_limits<qulonglong>::max()},
        {"unsigned long", QVariant::fromValue<ulong>(250)},
        {"JSON number", QJsonValue(1234.7)},
        {"JSON text", QJsonValue(QStringLiteral("1234"))},
        {"list", QVariantList{250}},
        {"invalid", QVariant()},
    };
    for (auto const& [name, value] : others)
        QTest::newRow(name) << value << value.toInt() / 100.0;
}

void TestCmdGetPresetInfo::torque()
{
    QFETCH(QVariant, hundredths);
    QFETCH(double, expected);
    QVariant const torque = publishedFor({{QStringLiteral("torque"), hundredths}}, c_torque);
    QCOMPARE(torque.userType(), int(QMetaType::Double));
    // To the last bit: the quotient is what a division gives.
    QVERIFY(torque.toDouble() == expected);
}

void TestCmdGetPresetInfo::angle_data()
{
    QTest::addColumn<QVariant>("degrees");
    QTest::addColumn<int>("expected");
    QTest::newRow("90") << QVariant(90) << 90;
    QTest::newRow("negative") << QVariant(-360) << -360;
    QTest::newRow("text") << QVariant(QStringLiteral("90")) << 90;
    QTest::newRow("fraction is cut") << QVariant(90.9) << 90;
    QTest::newRow("too large") << QVariant(1e10) << 0;
    QTest::newRow("garbage") << QVariant(QStringLiteral("right")) << 0;
}

void TestCmdGetPresetInfo::angle()
{
    QFETCH(QVariant, degrees);
    QFETCH(int, expected);
    QVERIFY(isSame(publishedFor({{QStringLiteral("targetAngle"), degrees}}, c_angle), QVariant(expected)));
}

void TestCmdGetPresetInfo::unrelatedKeys()
{
    QVariantMap const expected{
        {c_mode, QStringLiteral("GetPresetInfo_Torque")}, {c_torque, 0.0}, {c_angle, 0}};
    QVERIFY(isSame(publishedFor({{QStringLiteral("speed"), 400}}), QVariant(expected)));
    QVERIFY(isSame(publishedFor({{QStringLiteral("speed"), 400}}, c_torque), QVariant(0.0)));
    QVERIFY(isSame(publishedFor({{QStringLiteral("speed"), 400}}, c_angle), QVariant(0)));
}

void TestCmdGetPresetInfo::emptyPreset()
{
    QVERIFY(isSame(publishedFor({}), QVariant(QVariantMap())));
}

void TestCmdGetPresetInfo::translated()
{
    WorkingCommand torque(c_name);
    WorkingCommand angle(c_name);
    QVERIFY(torque.execute());
    QVERIFY(angle.execute());

    // Installed while the replies are on their way: what counts is the language at their arrival.
    QTranslator translator;
    QVERIFY(translator.load(QStringLiteral(PRESET_INFO_TRANSLATION)));
    QVERIFY(QCoreApplication::installTranslator(&translator));
    QVERIFY(torque.reply(
        {{c_presetData, QVariantMap{{QStringLiteral("torque"), 250}, {QStringLiteral("targetAngle"), 90}}}}));
    QVERIFY(angle.reply({{c_presetData, QVariantMap{{QStringLiteral("tcamActm"), 1}}}}));
    QVERIFY(QCoreApplication::removeTranslator(&translator));

    QVariantMap const expected{{QStringLiteral("Regelung"), QStringLiteral("Drehmoment")},
                               {QStringLiteral("Zieldrehmoment"), 2.5},
                               {QStringLiteral("Zielwinkel"), 90}};
    QVERIFY(isSame(torque.result(c_presetData), QVariant(expected)));
    QCOMPARE(angle.result(c_presetData).toMap().value(QStringLiteral("Regelung")).toString(),
             QStringLiteral("Winkel"));
    QCOMPARE(publishedFor({{QStringLiteral("torque"), 1}}).toMap().firstKey(), c_mode);
}

void TestCmdGetPresetInfo::presetOfAnotherKind_data()
{
    QTest::addColumn<QVariant>("preset");
    for (auto const& [name, value] : everyKindOfValue())
        QTest::newRow(name.constData()) << value;
}

void TestCmdGetPresetInfo::presetOfAnotherKind()
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
        QCOMPARE(ErrorLine::only(messages).file, QStringLiteral("d_cmd_getPresetInfo.cpp"));
    }
}

void TestCmdGetPresetInfo::presetIsMissing()
{
    MessageCapture const messages;
    WorkingCommand get(c_name);
    QVERIFY(get.execute());
    QVERIFY(!get.reply({{QStringLiteral("preset"), QVariantMap{{QStringLiteral("torque"), 250}}}}));
    QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
    QCOMPARE(ErrorLine::only(messages).file, QStringLiteral("d_cmd_getPresetInfo.cpp"));
    QCOMPARE(get.order.results.size(), 0);
}

QTEST_GUILESS_MAIN(TestCmdGetPresetInfo)
#include "tst_cmd_get_preset_info.moc"
