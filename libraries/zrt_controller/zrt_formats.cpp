#include "zrt_formats.h"

#include "zrt_controller.h"

#include <files/object_format.h>

#include <cmath>

namespace
{

using namespace format;

constexpr int c_highestPreset = std::numeric_limits<quint16>::max();
constexpr int c_longest = 600'000; // milliseconds

constexpr char const* c_hundredths = "hundredths of a newton metre";
constexpr char const* c_degrees = "degrees from snug";
constexpr char const* c_revolutions = "revolutions a minute";
constexpr char const* c_milliseconds = "milliseconds";

struct PresetFormat : ObjectFormat<PresetFormat, ZrtPreset>
{
    template <class Fields> static void fields(Fields& fields)
    {
        Whole const torque{1, 100'000, c_hundredths};
        Whole const angle{1, 100'000, c_degrees};
        Whole const speed{1, 10'000, c_revolutions};
        fields.optional("tcamActm", &ZrtPreset::control, "0 torque control, 1 angle control",
                        Whole{ZrtPreset::Torque, ZrtPreset::Angle});
        fields.optional("torque", &ZrtPreset::torque, "the target of torque control", torque);
        fields.optional("maxTorque", &ZrtPreset::maxTorque, "more is an error", torque);
        fields.optional("snugTorque", &ZrtPreset::snugTorque, "from here on the angle counts", torque);
        fields.optional("targetAngle", &ZrtPreset::targetAngle, "the target of angle control", angle);
        fields.optional("minAngle", &ZrtPreset::minAngle, "the target must not come before",
                        Whole{0, 100'000, c_degrees});
        fields.optional("maxAngle", &ZrtPreset::maxAngle, "the target must not come after", angle);
        fields.optional("speed", &ZrtPreset::speed, "while tightening", speed);
        fields.optional("freeSpeed", &ZrtPreset::freeSpeed, "while running down", speed);
        fields.optional("maxTime", &ZrtPreset::maxTime, "then the tool stops",
                        Whole{1, 60'000, c_milliseconds});
    }
    static Problem problemWith(ZrtPreset const& preset)
    {
        if (preset.snugTorque >= preset.torque)
            return {{}, QStringLiteral("\"snugTorque\" must be less than \"torque\"")};
        if (preset.maxTorque <= preset.torque)
            return {{}, QStringLiteral("\"maxTorque\" must be more than \"torque\"")};
        if (preset.minAngle >= preset.maxAngle)
            return {{}, QStringLiteral("\"minAngle\" must be less than \"maxAngle\"")};
        if (preset.control == ZrtPreset::Angle && preset.targetAngle > preset.maxAngle)
            return {{}, QStringLiteral("\"targetAngle\" must not be more than \"maxAngle\"")};
        if (preset.control == ZrtPreset::Angle && preset.targetAngle < preset.minAngle)
            return {{}, QStringLiteral("\"targetAngle\" must not be less than \"minAngle\"")};
        return {};
    }
};

struct ToMap : Fields<ToMap, ZrtPreset>
{
    ZrtPreset const& preset;
    QVariantMap map;

    template <class Place, class Format>
    void visit(Field const& field, Place const& place, Format const& /*format*/)
    {
        map.insert(QString::fromLatin1(field.key), valueOf(preset, place));
    }
};

/// Numbers of presets, as keys.
struct PresetNumber
{
    static int read(JsonInput const& input, QString const& key)
    {
        bool isNumber = false;
        int const number = key.toUShort(&isNumber);
        if (!isNumber || key != QString::number(number))
            input.fail(notANumber());
        return number;
    }
    static Problem problemIn(int number)
    {
        return {{}, number < 0 || number > c_highestPreset ? notANumber() : QString()};
    }
    static QString write(int number) { return QString::number(number); }
    static Json schema()
    {
        return {
            {"pattern",
             "^(0|[1-9][0-9]{0,3}|[1-5][0-9]{4}|6[0-4][0-9]{3}|65[0-4][0-9]{2}|655[0-2][0-9]|6553[0-5])$"},
            {"description", "its number, 0 to " + std::to_string(c_highestPreset)}};
    }

private:
    static QString notANumber()
    {
        return QStringLiteral("a preset's key must be its number, 0 to %1").arg(c_highestPreset);
    }
};

auto presets()
{
    return InOwnFile("presets", MapOf{PresetNumber(), PresetFormat()});
}

auto parameters()
{
    return InOwnFile("parameters", MapOf{Name(), Whole{std::numeric_limits<int>::min()}});
}

struct BackupFormat : ObjectFormat<BackupFormat, ZrtBackup>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("presets", &ZrtBackup::presets, "presets by their numbers", presets());
        fields.optional("parameters", &ZrtBackup::parameters, "the controller's parameters by their names",
                        parameters());
    }
};

struct KindOfScrew
{
    ZrtScrew value;
    char const* name;
    char const* meaning;
};

constexpr KindOfScrew c_screws[] = {
    {ZrtScrew::Good, "good", "reaches its target"},
    {ZrtScrew::CrossThreaded, "crossThreaded",
     "binds too early: the torque is there before the least angle; usually error 330"},
    {ZrtScrew::Stripped, "stripped",
     "gives way before the torque is reached and turns on; usually error 332"},
    {ZrtScrew::Missing, "missing", "the bit turns freely until the time is over; usually error 311"},
    {ZrtScrew::Soft, "soft", "takes too much angle; usually error 332"},
    {ZrtScrew::Blocked, "blocked", "hits something while it runs down; usually error 337"},
    {ZrtScrew::ReleasedEarly, "releasedEarly", "the operator lets go of the trigger; usually error 333"},
};

/// What a kind of fault takes besides how often it applies.
enum class Extra
{
    None,
    Delay,
    Key,
};

struct KindOfFault
{
    char const* name = "";
    char const* meaning = "";
    ZrtFault::Kind value = ZrtFault::Delay;
    Extra extra = Extra::None;
    int leastDelay = 0; ///< milliseconds
    int usualDelay = 0;
};

constexpr KindOfFault c_faults[] = {
    {"delay", "the reply takes longer", ZrtFault::Delay, Extra::Delay, 0, 100},
    // 4000 ms is the time allowance of every instruction.
    {"late", "the reply comes when the time allowance has passed", ZrtFault::Late, Extra::Delay, 4000, 5000},
    {"loss", "the instruction is carried out, its reply is lost", ZrtFault::Loss},
    {"duplicate", "the reply comes twice", ZrtFault::Duplicate},
    {"missingKey", "a key of the reply is missing", ZrtFault::MissingKey, Extra::Key},
    {"wrongType", "a key's value is the text \"???\"", ZrtFault::WrongType, Extra::Key},
    {"refused", "the instruction is not carried out; the reply is an error", ZrtFault::Refused},
    {"disconnected", "the controller is gone from here on", ZrtFault::Disconnected},
};

/// What only some kinds of faults take.
struct ExtraKey
{
    Extra extra;
    QString key;

    QStringList kinds() const
    {
        QStringList names;
        for (auto const& kind : c_faults) {
            if (kind.extra == extra)
                names += QString::fromLatin1(kind.name);
        }
        return names;
    }
    QString complaint() const
    {
        return QStringLiteral("goes with the kinds %1").arg(kinds().join(QStringLiteral(" and ")));
    }
};

ExtraKey const c_delay{Extra::Delay, QStringLiteral("delay")};
ExtraKey const c_key{Extra::Key, QStringLiteral("key")};

/// 0 in a fault stands for none.
struct Nth : Whole
{
    Nth() : Whole{1} {}
    Problem problemIn(int nth) const { return nth == 0 ? Problem() : Whole::problemIn(nth); }
};

/// A probability, in percent.
struct Percent
{
    static void read(JsonInput const& input, double& probability)
    {
        probability = static_cast<double>(input.toInteger(0, c_percent)) / c_percent;
    }
    static Problem problemIn(double probability)
    {
        bool const isProbability = probability >= 0 && probability <= 1; // which not-a-number is not
        return {{}, isProbability ? QString() : QStringLiteral("the probability must be from 0 to 1")};
    }
    static Json write(double probability) { return std::lround(probability * c_percent); }
    static Json schema() { return Whole{0, c_percent}.schema(); }

private:
    static constexpr int c_percent = 100;
};

struct FaultFormat : ObjectFormat<FaultFormat, ZrtFault>
{
    static auto kinds() { return OneOf("kind of fault", c_faults); }

    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("kind", &ZrtFault::kind, "", kinds());
        fields.required("instruction", &ZrtFault::instruction, "the instruction that it applies to",
                        OneOfTexts{"instruction", ZrtController::instructions()});
        fields.optional("nth", &ZrtFault::nth, "which one of that name, counted from 1; or `percent`", Nth());
        fields.optional("percent", &ZrtFault::probability, "how likely it is each time; or `nth`", Percent());
        fields.optional("delay", &ZrtFault::delay, "how much longer the reply takes",
                        Whole{0, c_longest, c_milliseconds});
        fields.optional("key", &ZrtFault::key, "the key of the reply");
    }
    void read(JsonInput const& input, ZrtFault& fault) const
    {
        input.allowKeys(keys());
        kinds().read(input.at(QStringLiteral("kind")), fault.kind);
        KindOfFault const& kind = *kinds().find(fault.kind);
        for (auto const& one : {c_delay, c_key}) {
            if (input.has(one.key) && kind.extra != one.extra)
                input.at(one.key).fail(one.complaint());
        }
        if (input.has(c_delay.key))
            delays(kind).read(input.at(c_delay.key), fault.delay);
        if (kind.extra == Extra::Key)
            input.at(c_key.key);
        readFields(input, fault);
        if (!input.has(c_delay.key))
            fault.delay = kind.usualDelay;
        if (input.has(QStringLiteral("nth")) == input.has(QStringLiteral("percent")))
            input.fail(QStringLiteral("must have one of \"nth\" and \"percent\""));
    }
    static Problem problemWith(ZrtFault const& fault)
    {
        KindOfFault const& kind = *kinds().find(fault.kind);
        if (fault.nth != 0 && fault.probability != 0)
            return {{}, QStringLiteral("\"nth\" and a probability exclude each other")};
        if (fault.delay != 0 && kind.extra != Extra::Delay)
            return {c_delay.key, c_delay.complaint()};
        if (!fault.key.isEmpty() && kind.extra != Extra::Key)
            return {c_key.key, c_key.complaint()};
        return kind.extra == Extra::Delay ? delays(kind).problemIn(fault.delay).at(c_delay.key) : Problem();
    }
    static Json schema()
    {
        Json schema = ObjectFormat().schema();
        for (auto const& key : {"nth", "percent", "delay", "key"})
            schema["properties"][key].erase("default");
        schema["oneOf"] = {{{"required", {"nth"}}}, {{"required", {"percent"}}}};
        Json rules = Json::array();
        for (auto const& kind : c_faults) {
            std::string more;
            Json then{{"properties", {{"delay", false}, {"key", false}}}};
            if (kind.extra == Extra::Delay) {
                then["properties"]["delay"] = {{"minimum", kind.leastDelay}};
                more = "; `delay` is at least " + std::to_string(kind.leastDelay) + ", and "
                       + std::to_string(kind.usualDelay) + " if it is absent";
            } else if (kind.extra == Extra::Key) {
                then = {{"properties", {{"delay", false}}}, {"required", {"key"}}};
                more = "; needs `key`";
            }
            schema["properties"]["kind"]["oneOf"][rules.size()]["description"] = kind.meaning + more;
            rules.push_back({{"if", {{"properties", {{"kind", {{"const", kind.name}}}}}}}, {"then", then}});
        }
        for (auto const& one : {c_delay, c_key}) {
            Json& description = schema["properties"][one.key.toStdString()]["description"];
            description = description.get<std::string>() + "; " + one.complaint().toStdString();
        }
        schema["allOf"] = rules;
        return schema;
    }

private:
    static Whole delays(KindOfFault const& kind) { return {kind.leastDelay, c_longest}; }
};

struct IdentityFormat : ObjectFormat<IdentityFormat, ZrtState>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.optional("model", &ZrtState::model);
        fields.optional("serialNumber", &ZrtState::serialNumber);
        fields.optional("firmware", &ZrtState::firmware);
    }
};

/// Any seed will do; a file has one of 63 bits.
struct Seed : Whole
{
    Seed() : Whole{0, std::numeric_limits<qint64>::max()} {}
    static Problem problemIn(quint64 /*seed*/) { return {}; }
    static Json write(quint64 seed) { return seed; }
};

struct SetupFormat : ObjectFormat<SetupFormat, ZrtSetup>
{
    template <class Fields> static void fields(Fields& fields)
    {
        Whole const presetNumber{0, c_highestPreset};
        Whole const time{0, c_longest, c_milliseconds};
        // A member of the state.
        auto const state = [](auto member) {
            return [member](auto& setup) -> auto&
            {
                return setup.state.*member;
            };
        };
        fields.optional(
            "identity", [](auto& setup) -> auto& { return setup.state; },
            "what the instruction \"getInfo\" answers", IdentityFormat());
        fields.optional("lock", state(&ZrtState::lock), "0 free, 1 all locked, 2 loosening locked",
                        Whole{ZrtState::Free, ZrtState::LooseningLocked});
        fields.optional("screenLocked", state(&ZrtState::isScreenLocked), "whether the screen is locked");
        fields.optional("presets", state(&ZrtState::presets), "presets by their numbers", presets());
        fields.optional("unwritablePresets", state(&ZrtState::unwritablePresets),
                        "presets at which a restore fails", ListOf{presetNumber});
        fields.optional("parameters", state(&ZrtState::parameters),
                        "the controller's parameters by their names", parameters());
        fields.optional("program", state(&ZrtState::program), "the preset in use; it must be there",
                        presetNumber);
        fields.optional("triggerMode", state(&ZrtState::isTriggerMode), "whether trigger mode is on");
        fields.optional("reverse", state(&ZrtState::isReverse), "whether the tool is set to loosen");
        fields.optional("eventCount", state(&ZrtState::eventCount), "the number of the last event", Whole());
        fields.optional("seed", state(&ZrtState::seed),
                        "determines how the screws turn and which faults apply by chance", Seed());
        fields.optional("screws", state(&ZrtState::screws),
                        "the next screws, one for each pull of the trigger; then good ones",
                        ListOf{OneOf("kind of screw", c_screws)});
        fields.optional(
            "replyTime", [](auto& setup) -> auto& { return setup.times.reply; },
            "from an instruction to its reply", time);
        fields.optional(
            "presetTime", [](auto& setup) -> auto& { return setup.times.preset; }, "to restore one preset",
            time);
        fields.optional("connected", &ZrtSetup::isConnected, "whether the controller can be reached");
        fields.optional("faults", &ZrtSetup::faults, "what goes wrong, and when", ListOf{FaultFormat()});
    }
};

bool hasItsProgram(ZrtSetup const& setup)
{
    return setup.state.presets.contains(setup.state.program);
}

QString otherProgram(ZrtSetup const& setup)
{
    return QStringLiteral("there is no preset %1, so \"program\" must name another").arg(setup.state.program);
}

} // namespace

ZrtSetup readZrtSetup(QString const& fileName)
{
    JsonInput const file = JsonInput::fromFile(fileName);
    QString const program = QStringLiteral("program");
    ZrtSetup setup;
    SetupFormat().read(file, setup);
    if (!hasItsProgram(setup) && file.has(program))
        file.at(program).fail(QStringLiteral("there is no preset of this number"));
    if (!hasItsProgram(setup))
        file.fail(otherProgram(setup));
    return setup;
}

ZrtBackup readZrtBackup(QString const& fileName)
{
    ZrtBackup backup;
    BackupFormat().read(JsonInput::fromFile(fileName), backup);
    return backup;
}

QString problemIn(ZrtSetup const& setup)
{
    Problem const problem = SetupFormat().problemIn(setup);
    return problem || hasItsProgram(setup) ? problem.text() : otherProgram(setup);
}

QString problemIn(ZrtFault const& fault)
{
    return FaultFormat().problemIn(fault).text();
}

QVariantMap toMap(ZrtPreset const& preset)
{
    ToMap visitor{{}, preset, {}};
    PresetFormat::fields(visitor);
    return visitor.map;
}

QMap<QString, QByteArray> zrtSchemas()
{
    QString const page = QStringLiteral("docs/controller.md describes it.");
    return {
        {QStringLiteral("controller"),
         fileSchemaText(SetupFormat().schema(), "Set-up of the simulated controller",
                        page + QStringLiteral(" The preset that program names must be there."))},
        {QStringLiteral("backup"),
         fileSchemaText(BackupFormat().schema(), "Backup of the simulated controller", page)},
        {QStringLiteral("presets"),
         schemaText(
             presets().content().schema(), "Presets of the simulated controller, by their numbers",
             page
                 + QStringLiteral(
                     " A part of set-ups and backups. snugTorque must be less than torque, maxTorque more "
                     "than torque and minAngle less than maxAngle; with angle control targetAngle must lie "
                     "between minAngle and maxAngle. The defaults count too."))},
        {QStringLiteral("parameters"),
         schemaText(parameters().content().schema(), "Parameters of the simulated controller, by their names",
                    page + QStringLiteral(" A part of set-ups and backups."))},
    };
}
