#include "literals.h"

#include <zrt_controller/tightening.h>

#include <QtTest>

#include <algorithm>
#include <cmath>

namespace
{

constexpr int c_seeds = 500;
constexpr double c_degreesPerMillisecond = 0.006; // at one revolution a minute

/// What the rows of a test call a screw, and the error that it ends with in torque control.
struct Screw
{
    ZrtScrew value;
    char const* name;
    int error;
};

constexpr Screw c_screws[] = {{ZrtScrew::Good, "good", 0},
                              {ZrtScrew::CrossThreaded, "cross-threaded", 330},
                              {ZrtScrew::Stripped, "stripped", 332},
                              {ZrtScrew::Missing, "missing", 311},
                              {ZrtScrew::Soft, "soft", 332},
                              {ZrtScrew::Blocked, "blocked", 337},
                              {ZrtScrew::ReleasedEarly, "released early", 333}};

std::mt19937_64 generator(int seed)
{
    return std::mt19937_64(static_cast<std::mt19937_64::result_type>(seed));
}

TighteningResult tightened(ZrtPreset const& preset, ZrtScrew screw, int seed)
{
    auto random = generator(seed);
    return tighten(preset, screw, random);
}

TighteningResult loosened(ZrtPreset const& preset, int seed)
{
    auto random = generator(seed);
    return loosen(preset, random);
}

QByteArray shown(TighteningResult const& result)
{
    return "error %1, torque %2, angle %3, speed %4, time %5"_s.arg(result.error)
        .arg(result.torque)
        .arg(result.angle)
        .arg(result.speed)
        .arg(result.time)
        .toUtf8();
}

constexpr auto c_byTorque = ZrtPreset::Torque;
constexpr auto c_byAngle = ZrtPreset::Angle;

struct Named
{
    char const* name;
    ZrtPreset preset; ///< torque, its maximum, snug; target angle, minimum, maximum; speed, free speed; time
};

QList<Named> const c_presets{{"usual", {}},
                             {"hard", {c_byTorque, 1200, 1500, 200, 90, 30, 180, 200, 600}},
                             {"fine", {c_byTorque, 60, 90, 10, 90, 20, 240, 150, 500}},
                             {"slow", {c_byTorque, 250, 320, 60, 90, 20, 240, 50, 300}},
                             {"fast", {c_byTorque, 300, 420, 50, 90, 40, 400, 900, 1500}},
                             {"usual by angle", {c_byAngle, 200, 260, 40, 90, 10, 300}},
                             {"short by angle", {c_byAngle, 250, 400, 40, 20, 10, 60}},
                             {"far by angle", {c_byAngle, 150, 220, 40, 280, 10, 300}}};

} // namespace

Q_DECLARE_METATYPE(ZrtPreset)
Q_DECLARE_METATYPE(Screw)

/// How a screw is tightened and loosened: what comes of it, from many seeds.
class TestTightening : public QObject
{
    Q_OBJECT

private slots:
    void good_data() { addPresets(); }

    void good()
    {
        QFETCH(ZrtPreset, preset);
        bool const isByAngle = preset.control == c_byAngle;
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = tightened(preset, ZrtScrew::Good, seed);
            QByteArray const what = shown(result);
            QVERIFY2(result.error == 0, what);
            if (isByAngle) {
                QVERIFY2(result.angle >= preset.targetAngle && result.angle <= preset.targetAngle + 1, what);
                QVERIFY2(result.torque > preset.torque * 4 / 5, what);
            } else {
                QVERIFY2(result.torque >= preset.torque, what);
                QVERIFY2(result.torque <= preset.torque + preset.torque * 3 / 100 + 1, what); // overshoots
            }
            // The run-down takes some turns, then comes the angle from snug.
            double const tightening = result.angle / (preset.speed * c_degreesPerMillisecond);
            double const rundown = (result.time - tightening) * preset.freeSpeed * c_degreesPerMillisecond;
            QVERIFY2(rundown > 3 * 360 && rundown < 5 * 360, what);
        }
    }

    void verdicts_data()
    {
        QTest::addColumn<ZrtPreset>("preset");
        QTest::addColumn<Screw>("screw");
        QTest::addColumn<int>("error");
        for (auto const& [name, preset] : c_presets) {
            for (auto const& screw : c_screws) {
                int error = screw.error;
                if (preset.control == c_byAngle) {
                    // A stripped or soft screw turns as far as any other: nobody looks at the torque.
                    bool const turns = screw.value == ZrtScrew::Stripped || screw.value == ZrtScrew::Soft;
                    // The torque of a cross-threaded one is too high before the angle is there.
                    error = turns ? 0 : screw.value == ZrtScrew::CrossThreaded ? 336 : error;
                }
                QTest::addRow("%s, %s", screw.name, name) << preset << screw << error;
            }
        }
        ZrtPreset slowest;
        slowest.speed = 1;
        QTest::newRow("good, slowest tightening") << slowest << c_screws[0] << 300;
    }

    // Every verdict follows from the screw, and the values fit it.
    void verdicts()
    {
        QFETCH(ZrtPreset, preset);
        QFETCH(Screw, screw);
        QFETCH(int, error);
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = tightened(preset, screw.value, seed);
            QByteArray const what = shown(result);
            QVERIFY2(result.error == error, what);
            QVERIFY2(result.time > 0 && result.time <= preset.maxTime, what);
            QVERIFY2(result.torque >= 0 && result.torque <= preset.maxTorque * 11 / 10, what);
            bool const isSnug = result.error != 311 && result.error != 337;
            QVERIFY2(result.speed == (isSnug ? preset.speed : preset.freeSpeed), what);
            switch (result.error) {
            case 0:
                QVERIFY2(result.angle >= preset.minAngle && result.angle <= preset.maxAngle, what);
                QVERIFY2(result.torque <= preset.maxTorque, what);
                break;
            case 300:
                QVERIFY2(result.torque >= preset.snugTorque * 9 / 10 && result.torque < preset.torque, what);
                QVERIFY2(result.angle > 0 && result.angle <= preset.maxTime * c_degreesPerMillisecond, what);
                QVERIFY2(result.time == preset.maxTime, what);
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
            case 337: // of all turns: half of the run-down
                QVERIFY2(result.torque >= preset.torque, what);
                QVERIFY2(result.angle > 360 && result.angle <= 1500 / 2 + 1, what);
                break;
            default:
                QFAIL(what);
            }
        }
    }

    void goodNeverAboveTheHighestTorque()
    {
        ZrtPreset preset;
        preset.maxTorque = preset.torque + 1; // the closest that a preset may have
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = tightened(preset, ZrtScrew::Good, seed);
            QVERIFY2(result.error == 336 || (result.error == 0 && result.torque <= preset.maxTorque),
                     shown(result));
        }
    }

    void seeds_data() { addPresets(); }

    void seeds()
    {
        QFETCH(ZrtPreset, preset);
        auto const compare = [](auto const& action, int least) {
            QSet<QByteArray> different;
            for (int seed = 0; seed < 20; ++seed) {
                QByteArray const result = shown(action(seed));
                QCOMPARE(shown(action(seed)), result);
                different += result;
            }
            QVERIFY2(different.size() >= least, QByteArray::number(different.size()));
        };
        for (auto const& screw : c_screws) {
            // A missing one has little to vary in.
            int const least = screw.value == ZrtScrew::Missing ? 2 : 9;
            compare([&](int seed) { return tightened(preset, screw.value, seed); }, least);
        }
        compare([&](int seed) { return loosened(preset, seed); }, 16);
    }

    void extremes_data()
    {
        QTest::addColumn<ZrtPreset>("preset");
        QTest::addColumn<QList<int>>("goodEndsWith");
        auto const row = [](Named const& named, QList<int> const& goodEndsWith) {
            QTest::newRow(named.name) << named.preset << goodEndsWith;
        };
        row({"no least angle", {c_byTorque, 200, 260, 40, 90, 0, 300, 50, 200}}, {0});
        row({"slowest run-down", {c_byTorque, 200, 260, 40, 90, 10, 300, 400, 1}}, {311});
        row({"fastest", {c_byTorque, 200, 260, 40, 90, 10, 300, 10'000, 10'000}}, {0});
        row({"no time", {c_byTorque, 200, 260, 40, 90, 10, 300, 400, 800, 1}}, {311});
        row({"longest time", {c_byTorque, 200, 260, 40, 90, 10, 300, 400, 800, 60'000}}, {0});
        row({"least torque", {c_byTorque, 2, 3, 1}}, {0, 336});
        row({"steepest", {c_byTorque, 99'999, 100'000, 1, 90, 0, 1, 10'000, 10'000}}, {0, 332, 336, 337});
        row({"flattest", {c_byTorque, 2, 100'000, 1, 90, 99'999, 100'000, 400, 800, 20'000}}, {300});
        row({"least angle", {c_byAngle, 200, 260, 40, 1, 0}}, {0, 336, 337});
        row({"most", {c_byAngle, 90'000, 100'000, 1, 100'000, 99'999, 100'000, 10'000, 10'000, 60'000}}, {0});
    }

    // Whatever a preset allows, the values stay within it.
    void extremes()
    {
        QFETCH(ZrtPreset, preset);
        QFETCH(QList<int>, goodEndsWith);
        QList<int> const errors{0, 300, 311, 330, 332, 333, 336, 337};
        for (int seed = 0; seed < 8; ++seed) {
            for (auto const& screw : c_screws) {
                auto const result = tightened(preset, screw.value, seed);
                QByteArray const what = screw.name + QByteArray(": ") + shown(result);
                QVERIFY2((screw.value == ZrtScrew::Good ? goodEndsWith : errors).contains(result.error),
                         what);
                QVERIFY2(result.error != 330 || preset.minAngle > 0, what);
                QVERIFY2(result.torque >= 0 && result.angle >= 0, what);
                QVERIFY2(result.speed == preset.speed || result.speed == preset.freeSpeed, what);
                QVERIFY2(result.time > 0 && result.time <= preset.maxTime, what);
                int const speed = std::max(preset.speed, preset.freeSpeed);
                QVERIFY2(result.angle <= result.time * speed * c_degreesPerMillisecond + 1, what);
            }
        }
    }

    void loosening_data()
    {
        addPresets();
        QTest::newRow("most torque and speed")
            << ZrtPreset{c_byTorque, 99'999, 100'000, 40, 90, 10, 300, 400, 10'000};
    }

    void loosening()
    {
        QFETCH(ZrtPreset, preset);
        for (int seed = 0; seed < c_seeds; ++seed) {
            auto const result = loosened(preset, seed);
            QByteArray const what = shown(result);
            QVERIFY2(result.error == 0, what);
            QVERIFY2(result.torque > 0 && result.torque < preset.torque,
                     what); // breaks away below the target
            QVERIFY2(result.angle > 3 * 360 && result.angle < 6 * 360, what);
            QVERIFY2(result.speed == preset.freeSpeed, what);
            double const time = result.angle / (preset.freeSpeed * c_degreesPerMillisecond);
            QVERIFY2(std::abs(result.time - time) <= 1.5 && result.time <= preset.maxTime, what);
        }
    }

    void timeIsUpWhileLoosening()
    {
        ZrtPreset preset;
        preset.freeSpeed = 1;
        auto const result = loosened(preset, 0);
        QCOMPARE(result.error, 301);
        QCOMPARE(result.time, preset.maxTime);
        QCOMPARE(result.angle, 30); // the way at one revolution a minute
    }

private:
    static void addPresets()
    {
        QTest::addColumn<ZrtPreset>("preset");
        for (auto const& [name, preset] : c_presets)
            QTest::newRow(name) << preset;
    }
};

QTEST_GUILESS_MAIN(TestTightening)
#include "tst_tightening.moc"
