#include "literals.h"

#include <zrt_controller/tightening.h>

#include <QtTest>

#include <algorithm>
#include <cmath>

namespace
{

constexpr int c_seeds = 500;
constexpr double c_degreesPerMillisecond = 0.006; // at one revolution a minute

ZrtScrew const c_screws[] = {ZrtScrew::Good,         ZrtScrew::CrossThreaded, ZrtScrew::Stripped,
                             ZrtScrew::Missing,      ZrtScrew::Soft,          ZrtScrew::Blocked,
                             ZrtScrew::ReleasedEarly};

/// What a tightening can be found wrong with, and 0.
QList<int> const c_errors{0, 300, 311, 330, 332, 333, 336, 337};

TighteningResult tightened(ZrtPreset const& preset, ZrtScrew screw, int seed)
{
    std::mt19937_64 random(static_cast<std::mt19937_64::result_type>(seed));
    return tighten(preset, screw, random);
}

TighteningResult loosened(ZrtPreset const& preset, int seed)
{
    std::mt19937_64 random(static_cast<std::mt19937_64::result_type>(seed));
    return loosen(preset, random);
}

QString shown(TighteningResult const& result)
{
    return "error %1, torque %2, angle %3, speed %4, time %5"_s.arg(result.error)
        .arg(result.torque)
        .arg(result.angle)
        .arg(result.speed)
        .arg(result.time);
}

/// What the rows of a test call a screw.
QString nameOf(ZrtScrew screw)
{
    switch (screw) {
    case ZrtScrew::Good:
        return "good"_s;
    case ZrtScrew::CrossThreaded:
        return "cross-threaded"_s;
    case ZrtScrew::Stripped:
        return "stripped"_s;
    case ZrtScrew::Missing:
        return "missing"_s;
    case ZrtScrew::Soft:
        return "soft"_s;
    case ZrtScrew::Blocked:
        return "blocked"_s;
    case ZrtScrew::ReleasedEarly:
        return "released early"_s;
    }
    return QString();
}

ZrtPreset torquePreset(int torque, int maxTorque, int snugTorque, int minAngle, int maxAngle, int speed,
                       int freeSpeed)
{
    ZrtPreset preset;
    preset.torque = torque;
    preset.maxTorque = maxTorque;
    preset.snugTorque = snugTorque;
    preset.minAngle = minAngle;
    preset.maxAngle = maxAngle;
    preset.speed = speed;
    preset.freeSpeed = freeSpeed;
    return preset;
}

ZrtPreset anglePreset(int targetAngle, int maxAngle, int torque, int maxTorque)
{
    ZrtPreset preset;
    preset.control = ZrtPreset::Angle;
    preset.targetAngle = targetAngle;
    preset.maxAngle = maxAngle;
    preset.torque = torque;
    preset.maxTorque = maxTorque;
    return preset;
}

struct Named
{
    char const* name;
    ZrtPreset preset;
};

QList<Named> torquePresets()
{
    return {{"usual", ZrtPreset()},
            {"hard", torquePreset(1200, 1500, 200, 30, 180, 200, 600)},
            {"fine", torquePreset(60, 90, 10, 20, 240, 150, 500)},
            {"slow", torquePreset(250, 320, 60, 20, 240, 50, 300)},
            {"fast", torquePreset(300, 420, 50, 40, 400, 900, 1500)}};
}

QList<Named> anglePresets()
{
    return {{"usual by angle", anglePreset(90, 300, 200, 260)},
            {"short by angle", anglePreset(20, 60, 250, 400)},
            {"far by angle", anglePreset(280, 300, 150, 220)}};
}

} // namespace

Q_DECLARE_METATYPE(ZrtPreset)
Q_DECLARE_METATYPE(ZrtScrew)

/// How a screw is tightened and loosened: what comes of it, from many seeds.
class TestTightening : public QObject
{
    Q_OBJECT

private slots:
    void goodByTorque_data()
    {
        QTest::addColumn<ZrtPreset>("preset");
        for (auto const& one : torquePresets())
            QTest::newRow(one.name) << one.preset;
    }

    void goodByTorque()
    {
        QFETCH(ZrtPreset, preset);
        constexpr int overshoot = 3; // percent of the target
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = tightened(preset, ZrtScrew::Good, seed);
            QByteArray const what = "seed %1: %2"_s.arg(seed).arg(shown(result)).toUtf8();
            QVERIFY2(result.error == 0, what);
            QVERIFY2(result.torque >= preset.torque, what);
            QVERIFY2(result.torque <= preset.torque + preset.torque * overshoot / 100 + 1, what);
            QVERIFY2(result.angle >= preset.minAngle && result.angle <= preset.maxAngle, what);
            QVERIFY2(result.speed == preset.speed, what);
            // The run-down takes some turns, then comes the angle from snug.
            double const tightening = result.angle / (preset.speed * c_degreesPerMillisecond);
            double const rundown = (result.time - tightening) * preset.freeSpeed * c_degreesPerMillisecond;
            QVERIFY2(rundown > 3 * 360 && rundown < 5 * 360, what);
            QVERIFY2(result.time <= preset.maxTime, what);
        }
    }

    void goodByAngle_data()
    {
        QTest::addColumn<ZrtPreset>("preset");
        for (auto const& one : anglePresets())
            QTest::newRow(one.name) << one.preset;
    }

    void goodByAngle()
    {
        QFETCH(ZrtPreset, preset);
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = tightened(preset, ZrtScrew::Good, seed);
            QByteArray const what = "seed %1: %2"_s.arg(seed).arg(shown(result)).toUtf8();
            QVERIFY2(result.error == 0, what);
            QVERIFY2(result.angle >= preset.targetAngle && result.angle <= preset.targetAngle + 1, what);
            QVERIFY2(result.torque > preset.torque * 4 / 5 && result.torque <= preset.maxTorque, what);
            QVERIFY2(result.speed == preset.speed, what);
            QVERIFY2(result.time > 0 && result.time <= preset.maxTime, what);
        }
    }

    void badByTorque_data()
    {
        QTest::addColumn<ZrtPreset>("preset");
        QTest::addColumn<ZrtScrew>("screw");
        QTest::addColumn<int>("error");
        for (auto const& one : torquePresets()) {
            auto const row = [&one](ZrtScrew screw, int error) {
                QTest::addRow("%s, %s", qPrintable(nameOf(screw)), one.name) << one.preset << screw << error;
            };
            row(ZrtScrew::CrossThreaded, 330);
            row(ZrtScrew::Stripped, 332);
            row(ZrtScrew::Missing, 311);
            row(ZrtScrew::Soft, 332);
            row(ZrtScrew::Blocked, 337);
            row(ZrtScrew::ReleasedEarly, 333);
        }
    }

    void badByTorque()
    {
        QFETCH(ZrtPreset, preset);
        QFETCH(ZrtScrew, screw);
        QFETCH(int, error);
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = tightened(preset, screw, seed);
            QVERIFY2(result.error == error, qPrintable("seed %1: %2"_s.arg(seed).arg(shown(result))));
        }
    }

    void badByAngle_data()
    {
        QTest::addColumn<ZrtScrew>("screw");
        QTest::addColumn<int>("error");
        auto const row = [](ZrtScrew screw, int error) {
            QTest::newRow(qPrintable(nameOf(screw))) << screw << error;
        };
        row(ZrtScrew::CrossThreaded, 336); // the torque is too high before the angle is there
        row(ZrtScrew::Stripped, 0);        // nobody looks at the torque
        row(ZrtScrew::Missing, 311);
        row(ZrtScrew::Soft, 0);
        row(ZrtScrew::Blocked, 337);
        row(ZrtScrew::ReleasedEarly, 333);
    }

    void badByAngle()
    {
        QFETCH(ZrtScrew, screw);
        QFETCH(int, error);
        ZrtPreset const preset = anglePreset(90, 300, 200, 260);
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = tightened(preset, screw, seed);
            QVERIFY2(result.error == error, qPrintable("seed %1: %2"_s.arg(seed).arg(shown(result))));
        }
    }

    void valuesFitTheVerdict_data()
    {
        QTest::addColumn<ZrtPreset>("preset");
        QTest::addColumn<ZrtScrew>("screw");
        auto const presets = torquePresets() + anglePresets();
        for (auto const& one : presets) {
            for (ZrtScrew const screw : c_screws)
                QTest::addRow("%s, %s", qPrintable(nameOf(screw)), one.name) << one.preset << screw;
        }
    }

    void valuesFitTheVerdict()
    {
        QFETCH(ZrtPreset, preset);
        QFETCH(ZrtScrew, screw);
        for (int seed = 0; seed < c_seeds / 5; ++seed) {
            auto const result = tightened(preset, screw, seed);
            QByteArray const what = "seed %1: %2"_s.arg(seed).arg(shown(result)).toUtf8();
            QVERIFY2(result.time > 0 && result.time <= preset.maxTime, what);
            QVERIFY2(result.torque >= 0 && result.torque <= preset.maxTorque * 11 / 10, what);
            bool const isSnug = result.error != 311 && result.error != 337;
            QVERIFY2(result.speed == (isSnug ? preset.speed : preset.freeSpeed), what);
            switch (result.error) {
            case 0:
                QVERIFY2(result.angle >= preset.minAngle && result.angle <= preset.maxAngle, what);
                QVERIFY2(result.torque <= preset.maxTorque, what);
                break;
            case 311: // of all turns: the whole time at free speed
                QVERIFY2(result.torque < preset.snugTorque, what);
                QVERIFY2(result.time == preset.maxTime, what);
                QVERIFY2(std::abs(result.angle - preset.maxTime * preset.freeSpeed * c_degreesPerMillisecond)
                             <= preset.freeSpeed * c_degreesPerMillisecond,
                         what);
                break;
            case 330:
                QVERIFY2(result.torque >= preset.torque && result.angle <= preset.minAngle, what);
                break;
            case 332:
                QVERIFY2(result.torque < preset.torque, what);
                QVERIFY2(result.angle >= preset.maxAngle && result.angle <= preset.maxAngle + 2, what);
                break;
            case 333:
                QVERIFY2(result.torque < preset.torque, what);
                QVERIFY2(result.angle > 0 && result.angle < preset.maxAngle, what);
                break;
            case 336:
                QVERIFY2(result.torque >= preset.maxTorque, what);
                break;
            case 337:
                QVERIFY2(result.torque >= preset.torque, what);
                QVERIFY2(result.angle > 360, what); // of all turns: some of the run-down
                break;
            default:
                QFAIL(what);
            }
        }
    }

    void blockedHalfWay()
    {
        constexpr int longestRunDown = 1500; // degrees
        auto const presets = torquePresets() + anglePresets();
        for (auto const& one : presets) {
            for (int seed = 0; seed < c_seeds / 10; ++seed) {
                auto const result = tightened(one.preset, ZrtScrew::Blocked, seed);
                QByteArray const what =
                    "%1, seed %2: %3"_s.arg(QLatin1String(one.name)).arg(seed).arg(shown(result)).toUtf8();
                QVERIFY2(result.error == 337, what);
                QVERIFY2(result.angle <= longestRunDown / 2 + 1, what);
            }
        }
    }

    void timeIsUpWhileTightening()
    {
        ZrtPreset preset;
        preset.speed = 1;
        for (int seed = 0; seed < c_seeds / 10; ++seed) {
            auto const result = tightened(preset, ZrtScrew::Good, seed);
            QByteArray const what = "seed %1: %2"_s.arg(seed).arg(shown(result)).toUtf8();
            QVERIFY2(result.error == 300, what);
            QVERIFY2(result.torque >= preset.snugTorque * 9 / 10 && result.torque < preset.torque, what);
            QVERIFY2(result.angle > 0 && result.angle <= preset.maxTime * c_degreesPerMillisecond, what);
            QVERIFY2(result.speed == 1, what);
            QVERIFY2(result.time == preset.maxTime, what);
        }
    }

    void goodNeverAboveTheHighestTorque()
    {
        ZrtPreset preset;
        preset.maxTorque = preset.torque + 1; // the closest that a preset may have
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = tightened(preset, ZrtScrew::Good, seed);
            QByteArray const what = "seed %1: %2"_s.arg(seed).arg(shown(result)).toUtf8();
            if (result.torque > preset.maxTorque)
                QVERIFY2(result.error == 336, what);
            else
                QVERIFY2(result.error == 0 || result.error == 336, what);
        }
    }

    void noAngleIsTooSmallWithoutALeastOne()
    {
        ZrtPreset preset;
        preset.minAngle = 0;
        preset.speed = 50;
        preset.freeSpeed = 200;
        for (int seed = 0; seed < c_seeds / 5; ++seed) {
            for (ZrtScrew const screw : c_screws) {
                auto const result = tightened(preset, screw, seed);
                QVERIFY2(result.error != 330, qPrintable(nameOf(screw) + ": "_s + shown(result)));
            }
        }
    }

    void seeds_data()
    {
        QTest::addColumn<ZrtPreset>("preset");
        auto const presets = torquePresets() + anglePresets();
        for (auto const& one : presets)
            QTest::newRow(one.name) << one.preset;
    }

    void seeds()
    {
        QFETCH(ZrtPreset, preset);
        for (ZrtScrew const screw : c_screws) {
            QSet<QString> different;
            for (int seed = 0; seed < 20; ++seed) {
                QString const result = shown(tightened(preset, screw, seed));
                QCOMPARE(shown(tightened(preset, screw, seed)), result);
                different += result;
            }
            // A missing screw has little to vary in.
            QVERIFY2(different.size() > (screw == ZrtScrew::Missing ? 1 : 8),
                     qPrintable(nameOf(screw) + ": %1"_s.arg(different.size())));
        }
        QSet<QString> different;
        for (int seed = 0; seed < 20; ++seed) {
            QString const result = shown(loosened(preset, seed));
            QCOMPARE(shown(loosened(preset, seed)), result);
            different += result;
        }
        QVERIFY(different.size() > 15);
    }

    void oneGeneratorGoesOn()
    {
        std::mt19937_64 random(7);
        QStringList results;
        for (int i = 0; i < 10; ++i) {
            results += shown(tighten(ZrtPreset(), ZrtScrew::Good, random));
            results += shown(loosen(ZrtPreset(), random));
        }
        QVERIFY(results.removeDuplicates() < 3);
    }

    void extremes_data()
    {
        QTest::addColumn<ZrtPreset>("preset");
        QTest::addColumn<QList<int>>("goodEndsWith");
        auto const row = [](char const* name, QList<int> const& goodEndsWith, auto const& change) {
            ZrtPreset preset;
            change(preset);
            QTest::newRow(name) << preset << goodEndsWith;
        };
        row("no least angle", {0}, [](auto& preset) { preset.minAngle = 0; });
        row("a degree at most", {0, 332, 336, 337}, [](auto& preset) {
            preset.minAngle = 0;
            preset.maxAngle = 1;
        });
        row("slowest tightening", {300}, [](auto& preset) { preset.speed = 1; });
        row("slowest run-down", {311}, [](auto& preset) { preset.freeSpeed = 1; });
        row("slowest and longest", {311}, [](auto& preset) {
            preset.speed = 1;
            preset.freeSpeed = 1;
            preset.maxTime = 60'000;
        });
        row("fastest", {0}, [](auto& preset) {
            preset.speed = 10'000;
            preset.freeSpeed = 10'000;
        });
        row("no time", {311}, [](auto& preset) { preset.maxTime = 1; });
        row("longest time", {0}, [](auto& preset) { preset.maxTime = 60'000; });
        row("least torque", {0, 336}, [](auto& preset) {
            preset.snugTorque = 1;
            preset.torque = 2;
            preset.maxTorque = 3;
        });
        row("most torque", {0, 336}, [](auto& preset) {
            preset.snugTorque = 99'998;
            preset.torque = 99'999;
            preset.maxTorque = 100'000;
        });
        row("steepest", {0, 332, 336, 337}, [](auto& preset) {
            preset.snugTorque = 1;
            preset.torque = 99'999;
            preset.maxTorque = 100'000;
            preset.minAngle = 0;
            preset.maxAngle = 1;
            preset.speed = 10'000;
            preset.freeSpeed = 10'000;
        });
        row("flattest", {300}, [](auto& preset) {
            preset.snugTorque = 1;
            preset.torque = 2;
            preset.maxTorque = 100'000;
            preset.minAngle = 99'999;
            preset.maxAngle = 100'000;
            preset.maxTime = 20'000;
        });
        row("least angle", {0, 336, 337}, [](auto& preset) {
            preset.control = ZrtPreset::Angle;
            preset.minAngle = 0;
            preset.targetAngle = 1;
        });
        row("most angle", {300}, [](auto& preset) {
            preset.control = ZrtPreset::Angle;
            preset.targetAngle = 100'000;
            preset.maxAngle = 100'000;
        });
        row("most of all", {0}, [](auto& preset) {
            preset.control = ZrtPreset::Angle;
            preset.targetAngle = 100'000;
            preset.maxAngle = 100'000;
            preset.minAngle = 99'999;
            preset.torque = 90'000;
            preset.maxTorque = 100'000;
            preset.snugTorque = 1;
            preset.speed = 10'000;
            preset.freeSpeed = 10'000;
            preset.maxTime = 60'000;
        });
    }

    void extremes()
    {
        QFETCH(ZrtPreset, preset);
        QFETCH(QList<int>, goodEndsWith);
        for (int seed = 0; seed < 5; ++seed) {
            for (ZrtScrew const screw : c_screws) {
                auto const result = tightened(preset, screw, seed);
                QByteArray const what =
                    "seed %1, %2: %3"_s.arg(seed).arg(nameOf(screw), shown(result)).toUtf8();
                QVERIFY2((screw == ZrtScrew::Good ? goodEndsWith : c_errors).contains(result.error), what);
                QVERIFY2(result.torque >= 0 && result.angle >= 0, what);
                QVERIFY2(result.speed == preset.speed || result.speed == preset.freeSpeed, what);
                QVERIFY2(result.time > 0 && result.time <= preset.maxTime, what);
                QVERIFY2(result.angle <= result.time * std::max(preset.speed, preset.freeSpeed)
                                                 * c_degreesPerMillisecond
                                             + 1,
                         what);
            }
        }
    }

    void loosening_data()
    {
        QTest::addColumn<ZrtPreset>("preset");
        auto const presets = torquePresets() + anglePresets();
        for (auto const& one : presets)
            QTest::newRow(one.name) << one.preset;
        ZrtPreset most;
        most.torque = 99'999;
        most.freeSpeed = 10'000;
        QTest::newRow("most torque and speed") << most;
    }

    void loosening()
    {
        QFETCH(ZrtPreset, preset);
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = loosened(preset, seed);
            QByteArray const what = "seed %1: %2"_s.arg(seed).arg(shown(result)).toUtf8();
            QVERIFY2(result.error == 0, what);
            QVERIFY2(result.torque > 0 && result.torque < preset.torque,
                     what); // it breaks away below the target
            QVERIFY2(result.angle > 3 * 360 && result.angle < 6 * 360, what);
            QVERIFY2(result.speed == preset.freeSpeed, what);
            double const time = result.angle / (preset.freeSpeed * c_degreesPerMillisecond);
            QVERIFY2(std::abs(result.time - time) <= 1.5, what);
            QVERIFY2(result.time <= preset.maxTime, what);
        }
    }

    void looseningKeepsToTheTime()
    {
        ZrtPreset preset;
        preset.freeSpeed = 1;
        for (int seed = 0; seed < 10; ++seed) {
            auto const result = loosened(preset, seed);
            QVERIFY2(result.time <= preset.maxTime, qPrintable(shown(result)));
        }
    }
};

QTEST_GUILESS_MAIN(TestTightening)
#include "tst_tightening.moc"
