#include "zrt_setup.h"

#include "tightening.h"
#include "zrt_backup.h"
#include "zrt_faults.h"
#include "zrt_preset.h"

#include <files/json_input.h>

#include <limits>

namespace
{

constexpr int c_longestTime = 600'000;
constexpr int c_highestPreset = std::numeric_limits<quint16>::max();

/// A number of a set-up that must be within bounds.
struct Number
{
    char const* key;
    int& (*of)(ZrtSetup& setup);
    int lowest;
    int highest;
};

Number const c_lock{"lock", [](ZrtSetup& setup) -> int& { return setup.state.lock; }, ZrtState::Free,
                    ZrtState::LooseningLocked};
Number const c_eventCount{"eventCount", [](ZrtSetup& setup) -> int& { return setup.state.eventCount; }, 0,
                          std::numeric_limits<int>::max()};
Number const c_replyTime{"replyTime", [](ZrtSetup& setup) -> int& { return setup.times.reply; }, 0,
                         c_longestTime};
Number const c_presetTime{"presetTime", [](ZrtSetup& setup) -> int& { return setup.times.preset; }, 0,
                          c_longestTime};

/// Reads an object's values, each if it is there, and in the end refuses what was not asked for.
class Fields
{
public:
    explicit Fields(JsonInput object) : m_object(std::move(object)) {}

    template <class Read> void read(char const* name, Read const& read)
    {
        QString const key = QString::fromLatin1(name);
        m_known += key;
        if (m_object.has(key))
            read(m_object.at(key));
    }
    void text(char const* name, QString& value)
    {
        read(name, [&value](JsonInput const& input) { value = input.toText(); });
    }
    void boolean(char const* name, bool& value)
    {
        read(name, [&value](JsonInput const& input) { value = input.toBool(); });
    }
    template <class Number> void number(char const* name, Number& value, qint64 lowest, qint64 highest)
    {
        read(name,
             [&](JsonInput const& input) { value = static_cast<Number>(input.toInteger(lowest, highest)); });
    }
    void end() const { m_object.allowKeys(m_known); }

private:
    JsonInput m_object;
    QStringList m_known;
};

ZrtScrew readScrew(JsonInput const& input)
{
    auto const index = screwNames().indexOf(input.toText());
    if (index < 0)
        input.fail(QStringLiteral("unknown kind of screw, known are %1")
                       .arg(screwNames().join(QStringLiteral(", "))));
    return static_cast<ZrtScrew>(index);
}

} // namespace

ZrtSetup readZrtSetup(QString const& fileName)
{
    ZrtSetup setup;
    ZrtState& state = setup.state;
    auto const file = JsonInput::fromFile(fileName);
    Fields root(file);
    root.read("identity", [&state](JsonInput const& input) {
        Fields identity(input);
        identity.text("model", state.model);
        identity.text("serialNumber", state.serialNumber);
        identity.text("firmware", state.firmware);
        identity.end();
    });
    auto const read = [&](Number const& number) {
        root.number(number.key, number.of(setup), number.lowest, number.highest);
    };
    read(c_lock);
    root.boolean("screenLocked", state.isScreenLocked);
    root.read("presets", [&state](JsonInput const& input) { state.presets = readZrtPresets(input); });
    root.read("unwritablePresets", [&state](JsonInput const& input) {
        for (auto const& item : input.items())
            state.unwritablePresets += static_cast<int>(item.toInteger(0, c_highestPreset));
    });
    root.read("parameters",
              [&state](JsonInput const& input) { state.parameters = readZrtParameters(input); });
    root.read("program", [&state](JsonInput const& input) {
        state.program = static_cast<int>(input.toInteger(0, c_highestPreset));
        if (!state.presets.contains(state.program))
            input.fail(QStringLiteral("there is no preset of this number"));
    });
    root.boolean("triggerMode", state.isTriggerMode);
    root.boolean("reverse", state.isReverse);
    read(c_eventCount);
    root.number("seed", state.seed, 0, std::numeric_limits<qint64>::max());
    root.read("screws", [&state](JsonInput const& input) {
        for (auto const& item : input.items())
            state.screws += readScrew(item);
    });
    read(c_replyTime);
    read(c_presetTime);
    root.boolean("connected", setup.isConnected);
    root.read("faults", [&setup](JsonInput const& input) { setup.faults = readZrtFaults(input); });
    root.end();
    QString const problem = problemIn(setup);
    if (!problem.isEmpty())
        file.fail(problem);
    return setup;
}

QString problemIn(ZrtSetup const& setup)
{
    ZrtState const& state = setup.state;
    ZrtSetup copy = setup;
    for (auto const& number : {c_lock, c_eventCount, c_replyTime, c_presetTime}) {
        if (number.of(copy) < number.lowest || number.of(copy) > number.highest)
            return QStringLiteral("\"%1\" must be a whole number from %2 to %3")
                .arg(QString::fromLatin1(number.key))
                .arg(number.lowest)
                .arg(number.highest);
    }
    for (auto it = state.presets.cbegin(); it != state.presets.cend(); ++it) {
        QString const problem = it.key() < 0 || it.key() > c_highestPreset
                                    ? QStringLiteral("its number must be from 0 to %1").arg(c_highestPreset)
                                    : problemIn(*it);
        if (!problem.isEmpty())
            return QStringLiteral("preset %1: %2").arg(it.key()).arg(problem);
    }
    if (!state.presets.contains(state.program))
        return QStringLiteral("there is no preset %1, so \"program\" must name another").arg(state.program);
    for (ZrtScrew const screw : state.screws) {
        if (static_cast<int>(screw) < 0 || static_cast<int>(screw) >= screwNames().size())
            return QStringLiteral("unknown kind of screw");
    }
    for (auto const& fault : setup.faults) {
        QString problem = problemIn(fault);
        if (!problem.isEmpty())
            return problem;
    }
    return {};
}
