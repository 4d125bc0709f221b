#include "zrt_setup.h"

#include "json/json_input.h"

#include <limits>

namespace
{

constexpr int c_longestTime = 600'000;
constexpr int c_highestPreset = std::numeric_limits<quint16>::max();

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

Screw readScrew(JsonInput const& input)
{
    auto const index = screwNames().indexOf(input.toText());
    if (index < 0)
        input.fail(QStringLiteral("unknown kind of screw, known are %1")
                       .arg(screwNames().join(QStringLiteral(", "))));
    return static_cast<Screw>(index);
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
    root.number("lock", state.lock, ZrtState::Free, ZrtState::LooseningLocked);
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
    root.number("eventCount", state.eventCount, 0, std::numeric_limits<int>::max());
    root.number("seed", state.seed, 0, std::numeric_limits<qint64>::max());
    root.read("screws", [&state](JsonInput const& input) {
        for (auto const& item : input.items())
            state.screws += readScrew(item);
    });
    root.number("replyTime", setup.times.reply, 0, c_longestTime);
    root.number("presetTime", setup.times.preset, 0, c_longestTime);
    root.boolean("connected", setup.isConnected);
    root.read("faults", [&setup](JsonInput const& input) { setup.faults = readZrtFaults(input); });
    root.end();
    if (!state.presets.contains(state.program))
        file.fail(
            QStringLiteral("there is no preset %1, so \"program\" must name another").arg(state.program));
    return setup;
}
