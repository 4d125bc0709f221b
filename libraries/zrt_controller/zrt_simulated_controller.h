#pragma once

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>
#include <optional>

#ifdef zrt_controller_EXPORTS
#define ZRT_CONTROLLER_EXPORT Q_DECL_EXPORT
#else
#define ZRT_CONTROLLER_EXPORT Q_DECL_IMPORT
#endif

class ZrtEndpoint;

/// The time of a simulation. Everything that takes time is a task planned here. Tasks run one after the
/// other, in the order of their times and, at the same time, in the order in which they were planned.
///
/// A clock is a handle: copies share the same time and the same tasks, which live as long as the last copy.
/// So a task must not hold a copy, or neither is ever destroyed.
///
/// A clock belongs to the thread that made it. A call that is not allowed logs a warning, changes nothing and
/// returns false. A task may call everything, and destroy the clock; it must not throw in Pace::EventLoop.
class ZRT_CONTROLLER_EXPORT ZrtClock
{
public:
    /// RealTime and EventLoop need a QCoreApplication. Simulated and RealTime give the same times and the
    /// same order, unless events that are handled meanwhile plan tasks.
    enum class Pace
    {
        Simulated, ///< step() and advance() run tasks at once; the date starts at 2000-01-01 in every run
        RealTime,  ///< step() and advance() wait for a task's time, and handle Qt's events meanwhile
        EventLoop, ///< Qt's event loop runs each task when its time has come
    };

    explicit ZrtClock(Pace pace = Pace::Simulated);
    /// A simulated clock that starts at this date.
    explicit ZrtClock(QDateTime const& start);
    ZrtClock(ZrtClock const&) = default;
    ZrtClock& operator=(ZrtClock const&) = default;
    ~ZrtClock() = default;

    Pace pace() const;
    /// Milliseconds since the start: those that step(), advance() and moveTo() have reached; in
    /// Pace::EventLoop, and while step() and advance() wait, those that have passed.
    qint64 now() const;
    /// The date of the start and now().
    QDateTime date() const;

    /// Plans @p task for @p delay milliseconds from now; a negative delay is 0. The task must not be null.
    bool after(qint64 delay, std::function<void()> task);
    /// When the next task is planned, in milliseconds since the start; nothing if none is.
    std::optional<qint64> nextDue() const;

    /// Goes to the time of the next task and runs it, then delivers Qt's posted events, deferred deletions
    /// included, so that what follows from a task happens at its time. Returns false if no task is planned.
    /// Not in Pace::EventLoop.
    bool step();
    /// Steps through the tasks of the next @p duration milliseconds, which must not be negative, and goes to
    /// their end. Not in Pace::EventLoop.
    bool advance(qint64 duration);
    /// Goes to @p time without running a task: it must not be past, and no task may be planned before it.
    /// Only in Pace::Simulated.
    bool moveTo(qint64 time);

private:
    friend class ZrtSimulatedController;
    /// What keeps the clock from being used in this thread; null if nothing does.
    char const* problem() const;

    struct Private;
    std::shared_ptr<Private> m_d;
};

/// How one tightening program tightens. ZrtSimulatedController::create() says which range a value must be in.
struct ZrtPreset
{
    enum Control
    {
        Torque = 0,
        Angle = 1,
    };

    int control = Torque; ///< what the tool tightens to: `torque` or `targetAngle`
    int torque = 200;     ///< the target, hundredths of a newton metre
    int maxTorque = 260;  ///< hundredths of a newton metre; more is an error
    int snugTorque = 40;  ///< hundredths of a newton metre; from here on the angle counts
    int targetAngle = 90; ///< degrees from snug, with angle control
    int minAngle = 10;    ///< degrees from snug; the target must not come before
    int maxAngle = 300;   ///< degrees from snug; nor after
    int speed = 400;      ///< revolutions a minute while tightening
    int freeSpeed = 800;  ///< revolutions a minute while running down
    int maxTime = 5000;   ///< milliseconds
};

/// What a screw does when it is tightened.
enum class ZrtScrew
{
    Good,
    CrossThreaded, ///< binds as soon as it turns
    Stripped,      ///< gives way before the torque is reached
    Missing,       ///< the bit turns freely
    Soft,          ///< takes too much angle to reach the torque
    Blocked,       ///< hits something while it runs down
    ReleasedEarly, ///< a good one, but the operator releases the trigger
};

/// One way in which the controller misbehaves, and when. A fault applies to an instruction and to all replies
/// to it.
struct ZrtFault
{
    enum Kind : int
    {
        Delay,        ///< the reply takes longer
        Late,         ///< the reply takes so much longer that the time allowance has passed
        Loss,         ///< the instruction is carried out, but its reply is lost
        Duplicate,    ///< the reply comes twice
        MissingKey,   ///< a key of the reply is missing
        WrongType,    ///< a key's value is the text "???", whatever it should be
        Refused,      ///< the instruction is not carried out; the reply is an error
        Disconnected, ///< the controller disconnects and the instruction is lost
    };

    Kind kind = Delay;
    /// One of ZrtSimulatedController::instructions().
    QString instruction;
    /// Applies to the n-th instruction of that name since the fault was added, counted from 1. 0: applies to
    /// each with the probability.
    int nth = 0;
    double probability = 0; ///< 0 to 1; only if nth is 0
    int delay = 0;          ///< additional milliseconds; only of Delay, and of Late: at least 4000
    QString key;            ///< only of MissingKey and WrongType
};

/// What a controller is and which state it is in.
struct ZrtState
{
    /// The lock codes: which directions the tool does not turn in.
    enum Lock
    {
        Free = 0,
        AllLocked = 1,
        LooseningLocked = 2,
    };

    QString model = QStringLiteral("ZRT");
    QString serialNumber = QStringLiteral("ZRT-SIM-0001");
    QString firmware = QStringLiteral("1.0.0");
    int lock = Free;
    bool isScreenLocked = false;
    QMap<int, ZrtPreset> presets{{1, {}}, {15, {}}}; ///< by their numbers, 0 to 65535
    QList<int> unwritablePresets;                    ///< a restore fails at these
    QMap<QString, int> parameters;
    int program = 1; ///< the number of the preset in use
    bool isTriggerMode = false;
    bool isReverse = false; ///< the direction switch at the tool
    int eventCount = 0;     ///< the number of the last event
    quint64 seed = 1;       ///< determines how the screws turn and which faults apply by chance
    QList<ZrtScrew> screws; ///< the next screws; good ones when there are no more
};

/// How long things take on the way to a controller and in it, in milliseconds.
struct ZrtTimes
{
    int reply = 5;   ///< from an instruction to its reply, and from the end of a tightening to its event
    int preset = 50; ///< to restore one preset
};

/// A controller to simulate, and how it is reached.
struct ZrtSetup
{
    ZrtState state;
    ZrtTimes times;
    bool isConnected = true;
    QList<ZrtFault> faults;
};

/// A simulated ZRT controller with its tool, for a host that is tried or tested without hardware.
/// docs/controller.md describes its instructions with their arguments and replies, its set-up files and how
/// it tightens.
///
///     ZrtClock clock;
///     auto const controller = ZrtSimulatedController::create({}, clock);
///     controller->post(1, "getInfo", {}, [](QVariantMap const& reply) { qDebug() << reply; });
///     clock.advance(100);
///
/// An instruction takes effect when it is posted. Its replies arrive as tasks of the clock, of which the
/// controller keeps a copy. Two controllers with the same set-up and the same calls at the same simulated
/// times do the same.
///
/// A controller belongs to the thread that made it. Once it is destroyed, it calls no callback. A call that
/// is not allowed logs a warning that says why, changes nothing and returns false or null. A callback may
/// call everything, and destroy the controller. Exceptions pass through, but a reply must not throw in
/// ZrtClock::Pace::EventLoop.
class ZRT_CONTROLLER_EXPORT ZrtSimulatedController
{
public:
    using Reply = std::function<void(QVariantMap const&)>;

    /// Makes a controller. If the set-up is not valid, or the clock cannot be used in this thread, it returns
    /// null, and @p problem, where given, says what is wrong.
    static std::unique_ptr<ZrtSimulatedController> create(ZrtSetup const& setup, ZrtClock const& clock,
                                                          QString* problem = nullptr);
    /// Reads a set-up file. If it cannot be used it returns nothing, and @p problem, where given, says on one
    /// line which file, line and key is wrong and how.
    static std::optional<ZrtSetup> readSetup(QString const& fileName, QString* problem = nullptr);
    /// The JSON Schemas of the files that a controller reads and of their parts, by their names: "controller"
    /// (a set-up file), "backup", "presets" and "parameters". One refers to another as NAME.schema.json.
    static QMap<QString, QByteArray> schemas();
    /// The names of all instructions, sorted.
    static QStringList instructions();

    ~ZrtSimulatedController();
    ZrtSimulatedController(ZrtSimulatedController const&) = delete;
    ZrtSimulatedController& operator=(ZrtSimulatedController const&) = delete;

    ZrtState state() const;
    bool isConnected() const;
    /// Calls @p callback after each change of state() or isConnected(), and after each restore, within the
    /// call or the task that made it. A null callback ends that.
    bool onChange(std::function<void()> callback);

    /// Sends an instruction, which takes effect at once. @p onReply is called with each reply, in a task of
    /// the clock: once, or until the instruction is withdrawn if it listens or restores. The reply to an
    /// instruction that cannot be carried out has one key, "error", a text; a restore says so in
    /// "statusData".
    ///
    /// The controller must be connected, @p onReply not null, and @p id not in use: an id is in use while the
    /// instruction listens or restores, or a reply to it is on its way.
    bool post(quint64 id, QString const& instruction, QVariantMap const& arguments, Reply const& onReply);
    /// Ends listening or restoring. Replies that are on their way still arrive. Returns false, without a
    /// warning, if no instruction of this id listens or restores.
    bool withdraw(quint64 id);

    /// Connects or disconnects. While the controller is disconnected, replies that would arrive are lost, and
    /// a restore that would write its next preset ends and changes nothing. Listening goes on: later events
    /// arrive when it is connected again.
    bool setConnected(bool connected);

    // The controls at the tool.

    /// The operator pulls the trigger and holds it until the tool stops: tightens one screw or, in reverse,
    /// loosens one. Returns for how many milliseconds the tool turns; its event follows. Nothing if the tool
    /// is locked or, with a warning, still turns.
    std::optional<int> pullTrigger();
    /// The operator presses the direction switch.
    bool pressReverse();

    /// The faults by their numbers; those of the set-up count from 1.
    QMap<int, ZrtFault> faults() const;
    /// Adds a fault, which applies to instructions posted from now on. Returns its number; 0 if it is not
    /// valid.
    int addFault(ZrtFault const& fault);
    /// Removes a fault. It still applies to replies to instructions that were posted before.
    bool removeFault(int number);

private:
    explicit ZrtSimulatedController(std::shared_ptr<ZrtEndpoint> endpoint);

    std::shared_ptr<ZrtEndpoint> m_endpoint;
};
