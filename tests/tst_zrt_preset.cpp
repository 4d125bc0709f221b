#include "complaint.h"
#include "scratch_folder.h"

#include <files/json_input.h>
#include <zrt_controller/zrt_backup.h>
#include <zrt_controller/zrt_preset.h>

#include <QtTest>

#include <limits>

namespace
{

/// The keys with what each may be, and what it is if it is not given.
struct Key
{
    char const* name;
    int lowest;
    int highest;
    int standard;
    /// What must stand beside the lowest and the highest value for the whole to make sense.
    char const* besideLowest;
    char const* besideHighest;
};
Key const c_keys[] = {
    {"tcamActm", 0, 1, 0, "", ""},
    {"torque", 1, 100'000, 200, nullptr, nullptr}, // something must be below it, and something above
    {"maxTorque", 1, 100'000, 260, nullptr, ""},
    {"snugTorque", 1, 100'000, 40, "", nullptr},
    {"targetAngle", 1, 100'000, 90, "", ""}, // with torque control it does not matter
    {"minAngle", 0, 100'000, 10, "", nullptr},
    {"maxAngle", 1, 100'000, 300, R"(, "minAngle": 0)", ""},
    {"speed", 1, 10'000, 400, "", ""},
    {"freeSpeed", 1, 10'000, 800, "", ""},
    {"maxTime", 1, 60'000, 5000, "", ""},
};

/// A map's keys, types and values in one text.
QString exactly(QVariantMap const& map)
{
    QStringList entries;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        entries +=
            QStringLiteral("%1: %2 %3").arg(it.key(), QString::fromLatin1(it->typeName()), it->toString());
    return entries.join(QStringLiteral(", "));
}

QString withChange(QString const& key, int value)
{
    QVariantMap map;
    for (auto const& one : c_keys)
        map.insert(QString::fromLatin1(one.name), one.standard);
    if (!key.isEmpty())
        map.insert(key, value);
    return exactly(map);
}

template <class Map> QStringList shownParameters(Map const& parameters)
{
    QStringList list;
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it)
        list += QStringLiteral("%1 = %2").arg(it.key()).arg(it.value());
    return list;
}

} // namespace

/// The presets, the parameters and the backups as files have them.
class TstZrtPreset : public QObject
{
    Q_OBJECT

private slots:
    void defaults();
    void limits_data();
    void limits();
    void wrongValues_data();
    void wrongValues();
    void contradictions_data();
    void contradictions();
    void justNotContradictory_data();
    void justNotContradictory();
    void everyKeyGoesToItsMember();

    void presets_data();
    void presets();
    void presetsRefuse_data();
    void presetsRefuse();

    void parameters_data();
    void parameters();
    void parametersRefuse_data();
    void parametersRefuse();

    void backups_data();
    void backups();
    void backupsRefuse_data();
    void backupsRefuse();
    void backupThatIsNotThere();

private:
    QString file(QByteArray const& content) const
    {
        return m_folder.write(QStringLiteral("input.json"), content);
    }

    ScratchFolder m_folder;
};

void TstZrtPreset::defaults()
{
    QCOMPARE(exactly(toMap(ZrtPreset())), withChange({}, 0));
    QCOMPARE(exactly(toMap(readZrtPreset(JsonInput::fromFile(file("{}"))))), withChange({}, 0));
}

void TstZrtPreset::limits_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("value");
    QTest::addColumn<QByteArray>("beside");
    for (auto const& key : c_keys) {
        if (key.besideLowest)
            QTest::addRow("%s, lowest", key.name)
                << QString::fromLatin1(key.name) << key.lowest << QByteArray(key.besideLowest);
        if (key.besideHighest)
            QTest::addRow("%s, highest", key.name)
                << QString::fromLatin1(key.name) << key.highest << QByteArray(key.besideHighest);
    }
}

void TstZrtPreset::limits()
{
    QFETCH(QString, key);
    QFETCH(int, value);
    QFETCH(QByteArray, beside);
    QByteArray const content = "{\"" + key.toUtf8() + "\": " + QByteArray::number(value) + beside + "}";
    QVariantMap map = toMap(readZrtPreset(JsonInput::fromFile(file(content))));
    QCOMPARE(map.value(key), QVariant(value));
    if (beside.isEmpty())
        QCOMPARE(exactly(map), withChange(key, value));
}

void TstZrtPreset::wrongValues_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    for (auto const& key : c_keys) {
        QString const message = QStringLiteral("1: %1: must be a whole number from %2 to %3")
                                    .arg(QString::fromLatin1(key.name))
                                    .arg(key.lowest)
                                    .arg(key.highest);
        auto const row = [&](char const* what, QByteArray const& value) {
            QTest::addRow("%s, %s", key.name, what)
                << QByteArray("{\"") + key.name + "\": " + value + "}" << message;
        };
        row("below", QByteArray::number(key.lowest - 1));
        row("above", QByteArray::number(key.highest + 1));
        row("beyond int", "4294967297");
        row("far below", "-9223372036854775808");
        row("far above", "18446744073709551615");
        row("fraction", "1.5");
        row("whole as fraction", "1.0");
        row("text", "\"1\"");
        row("truth value", "true");
        row("null", "null");
        row("list", "[1]");
        row("object", "{}");
    }
    QTest::newRow("unknown key")
        << QByteArray("{\n\"torques\": 1}")
        << QStringLiteral("2: unknown key \"torques\", known are tcamActm, torque, maxTorque, snugTorque, "
                          "targetAngle, minAngle, maxAngle, speed, freeSpeed, maxTime");
    QTest::newRow("key in another case")
        << QByteArray(R"({"Torque": 1})")
        << QStringLiteral("1: unknown key \"Torque\", known are tcamActm, torque, maxTorque, snugTorque, "
                          "targetAngle, minAngle, maxAngle, speed, freeSpeed, maxTime");
    QTest::newRow("list") << QByteArray("[]") << QStringLiteral("1: must be an object, not a list");
}

void TstZrtPreset::wrongValues()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QString const fileName = file(content);
    QCOMPARE(complaintOf([&] { readZrtPreset(JsonInput::fromFile(fileName)); }),
             fileName + QLatin1Char(':') + message);
}

void TstZrtPreset::contradictions_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    auto const row = [](char const* name, char const* content, char const* message) {
        QTest::newRow(name) << QByteArray(content) << QString::fromLatin1(message);
    };
    char const* const snug = "1: \"snugTorque\" must be less than \"torque\"";
    row("snug at the target", R"({"snugTorque": 200})", snug);
    row("snug above the target", R"({"snugTorque": 201})", snug);
    row("highest snug", R"({"snugTorque": 100000})", snug);
    row("target at the default snug", R"({"torque": 40})", snug);
    row("target of one", R"({"torque": 1, "snugTorque": 1})", snug);
    char const* const most = "1: \"maxTorque\" must be more than \"torque\"";
    row("most at the target", R"({"maxTorque": 200})", most);
    row("most below the target", R"({"maxTorque": 199})", most);
    row("target at the default most", R"({"torque": 260})", most);
    row("highest target", R"({"torque": 100000, "maxTorque": 100000})", most);
    char const* const angles = "1: \"minAngle\" must be less than \"maxAngle\"";
    row("least angle at the most", R"({"minAngle": 300})", angles);
    row("least angle above the most", R"({"minAngle": 301})", angles);
    row("most angle at the default least", R"({"maxAngle": 10})", angles);
    row("highest least angle", R"({"minAngle": 100000, "maxAngle": 100000})", angles);
    row("target angle above the most", R"({"tcamActm": 1, "targetAngle": 301})",
        "1: \"targetAngle\" must not be more than \"maxAngle\"");
    row("target angle below the least", R"({"tcamActm": 1, "targetAngle": 9})",
        "1: \"targetAngle\" must not be less than \"minAngle\"");
    row("where the preset begins", "\n\n{\"snugTorque\":\n200}",
        "3: \"snugTorque\" must be less than \"torque\"");
}

void TstZrtPreset::contradictions()
{
    wrongValues();
}

void TstZrtPreset::justNotContradictory_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("value");
    auto const row = [](char const* name, char const* content, char const* key, int value) {
        QTest::newRow(name) << QByteArray(content) << QString::fromLatin1(key) << value;
    };
    row("snug", R"({"snugTorque": 199})", "snugTorque", 199);
    row("lowest target", R"({"torque": 2, "snugTorque": 1})", "torque", 2);
    row("highest target", R"({"torque": 99999, "maxTorque": 100000})", "torque", 99'999);
    row("most", R"({"maxTorque": 201})", "maxTorque", 201);
    row("least angle", R"({"minAngle": 299})", "minAngle", 299);
    row("target angle", R"({"tcamActm": 1, "targetAngle": 300})", "targetAngle", 300);
    row("lowest target angle", R"({"tcamActm": 1, "targetAngle": 10})", "targetAngle", 10);
    row("target angle that does not count", R"({"tcamActm": 0, "targetAngle": 301})", "targetAngle", 301);
}

void TstZrtPreset::justNotContradictory()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, key);
    QFETCH(int, value);
    QCOMPARE(toMap(readZrtPreset(JsonInput::fromFile(file(content)))).value(key), QVariant(value));
}

void TstZrtPreset::everyKeyGoesToItsMember()
{
    ZrtPreset const preset = readZrtPreset(JsonInput::fromFile(
        file(R"({"tcamActm": 1, "torque": 102, "maxTorque": 103, "snugTorque": 101, "targetAngle": 105,
                 "minAngle": 104, "maxAngle": 106, "speed": 107, "freeSpeed": 108, "maxTime": 109})")));
    QCOMPARE(preset.control, int(ZrtPreset::Angle));
    QCOMPARE(preset.torque, 102);
    QCOMPARE(preset.maxTorque, 103);
    QCOMPARE(preset.snugTorque, 101);
    QCOMPARE(preset.targetAngle, 105);
    QCOMPARE(preset.minAngle, 104);
    QCOMPARE(preset.maxAngle, 106);
    QCOMPARE(preset.speed, 107);
    QCOMPARE(preset.freeSpeed, 108);
    QCOMPARE(preset.maxTime, 109);
    QCOMPARE(exactly(toMap(preset)),
             QStringLiteral("freeSpeed: int 108, maxAngle: int 106, maxTime: int 109, maxTorque: int 103, "
                            "minAngle: int 104, snugTorque: int 101, speed: int 107, targetAngle: int 105, "
                            "tcamActm: int 1, torque: int 102"));
}

void TstZrtPreset::presets_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("torques");
    QTest::newRow("none") << QByteArray("{}") << QStringList();
    QTest::newRow("limits") << QByteArray(R"({"65535": {"torque": 201}, "0": {}})")
                            << QStringList{QStringLiteral("0 = 200"), QStringLiteral("65535 = 201")};
    QTest::newRow("some") << QByteArray(R"({"1": {"torque": 201}, "2": {}, "15": {"torque": 203}})")
                          << QStringList{QStringLiteral("1 = 201"), QStringLiteral("2 = 200"),
                                         QStringLiteral("15 = 203")};
}

void TstZrtPreset::presets()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, torques);
    auto const presets = readZrtPresets(JsonInput::fromFile(file(content)));
    QMap<int, int> actual;
    for (auto it = presets.cbegin(); it != presets.cend(); ++it)
        actual.insert(it.key(), it->torque);
    QCOMPARE(shownParameters(actual), torques);
}

void TstZrtPreset::presetsRefuse_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    for (char const* const key : {"01", "00", "-1", "-0", "+1", "65536", "4294967297", "x", "1x", "1.0",
                                  "1e1", "0x1", " 1", "1 ", "99999999999999999999"})
        QTest::addRow("number %s", key)
            << QByteArray("{\"1\": {},\n\"") + key + "\": {}}"
            << QStringLiteral("2: %1: a preset's key must be its number, 0 to 65535")
                   .arg(QString::fromLatin1(key));
    QTest::newRow("list") << QByteArray("[]") << QStringLiteral("1: must be an object, not a list");
    QTest::newRow("preset as number")
        << QByteArray(R"({"3": 250})") << QStringLiteral("1: 3: must be an object, not a number");
    QTest::newRow("wrong inside") << QByteArray("{\"3\": {\n\"torque\": 0}}")
                                  << QStringLiteral("2: 3.torque: must be a whole number from 1 to 100000");
    QTest::newRow("contradictory inside")
        << QByteArray("{\n\"3\": {\n\"torque\": 300}}")
        << QStringLiteral("2: 3: \"maxTorque\" must be more than \"torque\"");
    QTest::newRow("twice") << QByteArray("{\"3\": {},\n\"3\": {}}")
                           << QStringLiteral("2: the key \"3\" stands twice in one object");
}

void TstZrtPreset::presetsRefuse()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QString const fileName = file(content);
    QCOMPARE(complaintOf([&] { readZrtPresets(JsonInput::fromFile(fileName)); }),
             fileName + QLatin1Char(':') + message);
}

void TstZrtPreset::parameters_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("parameters");
    QTest::newRow("none") << QByteArray("{}") << QStringList();
    QTest::newRow("some") << QByteArray(R"({"b": 0, "a": -2147483648, "": 2147483647})")
                          << QStringList{QStringLiteral(" = 2147483647"), QStringLiteral("a = -2147483648"),
                                         QStringLiteral("b = 0")};
}

void TstZrtPreset::parameters()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, parameters);
    QCOMPARE(shownParameters(readZrtParameters(JsonInput::fromFile(file(content)))), parameters);
}

void TstZrtPreset::parametersRefuse_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    for (char const* const value : {"-2147483649", "2147483648", "0.5", "\"1\"", "true", "null", "[]", "{}"})
        QTest::newRow(value) << QByteArray("{\"a\": 1,\n\"b\": ") + value + "}"
                             << QStringLiteral("2: b: must be a whole number from -2147483648 to 2147483647");
    QTest::newRow("list") << QByteArray("[]") << QStringLiteral("1: must be an object, not a list");
}

void TstZrtPreset::parametersRefuse()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QString const fileName = file(content);
    QCOMPARE(complaintOf([&] { readZrtParameters(JsonInput::fromFile(fileName)); }),
             fileName + QLatin1Char(':') + message);
}

void TstZrtPreset::backups_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QList<int>>("presets");
    QTest::addColumn<QStringList>("parameters");
    QTest::newRow("presets alone") << QByteArray(R"({"presets": {"15": {}, "3": {}}})") << QList<int>{3, 15}
                                   << QStringList();
    QTest::newRow("no presets") << QByteArray(R"({"presets": {}})") << QList<int>() << QStringList();
    QTest::newRow("both") << QByteArray(R"({"presets": {"0": {}}, "parameters": {"language": 2}})")
                          << QList<int>{0} << QStringList{QStringLiteral("language = 2")};
}

void TstZrtPreset::backups()
{
    QFETCH(QByteArray, content);
    QFETCH(QList<int>, presets);
    QFETCH(QStringList, parameters);
    ZrtBackup const backup = readZrtBackup(file(content));
    QCOMPARE(backup.presets.keys(), presets);
    QCOMPARE(shownParameters(backup.parameters), parameters);
}

void TstZrtPreset::backupsRefuse_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    auto const row = [](char const* name, char const* content, char const* message) {
        QTest::newRow(name) << QByteArray(content) << QString::fromLatin1(message);
    };
    row("no presets", R"({"parameters": {}})", "1: the key \"presets\" is missing");
    row("list", "[]", "1: must be an object, not a list");
    row("unknown key", "{\"presets\": {},\n\"preset\": {}}",
        "2: unknown key \"preset\", known are presets, parameters");
    row("presets as list", R"({"presets": []})", "1: presets: must be an object, not a list");
    row("wrong number", R"({"presets": {"x": {}}})",
        "1: presets.x: a preset's key must be its number, 0 to 65535");
    row("wrong preset", "{\"presets\": {\"1\": {},\n\"2\": {\"speed\": 0}}}",
        "2: presets.2.speed: must be a whole number from 1 to 10000");
    row("wrong parameter", R"({"presets": {}, "parameters": {"a": "b"}})",
        "1: parameters.a: must be a whole number from -2147483648 to 2147483647");
    row("parameters as null", R"({"presets": {}, "parameters": null})",
        "1: parameters: must be an object, not null");
}

void TstZrtPreset::backupsRefuse()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QString const fileName = file(content);
    QCOMPARE(complaintOf([&] { readZrtBackup(fileName); }), fileName + QLatin1Char(':') + message);
}

void TstZrtPreset::backupThatIsNotThere()
{
    QString const fileName = m_folder.filePath(QStringLiteral("none.json"));
    QCOMPARE(complaintOf([&] { readZrtBackup(fileName); }),
             fileName + QStringLiteral(": No such file or directory"));
}

QTEST_GUILESS_MAIN(TstZrtPreset)
#include "tst_zrt_preset.moc"
