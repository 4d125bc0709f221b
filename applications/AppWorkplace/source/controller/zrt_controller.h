#pragma once

#include "tightening.h"
#include "zrt_backup.h"
#include "zrt_preset.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>
#include <random>

/// What a controller is and in which state it is.
struct ZrtState
{
    /// The values of the lock: which directions the tool does not turn in.
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
    QMap<int, ZrtPreset> presets{{1, {}}, {15, {}}};
    QList<int> unwritablePresets; ///< a restore fails at these
    QMap<QString, int> parameters;
    int program = 1; ///< the number of the preset in use
    bool isTriggerMode = false;
    bool isReverse = false; ///< the direction switch at the tool
    int eventCount = 0;
    quint64 seed = 1;
    /// What the next screws are like; good ones when there are no more.
    QList<Screw> screws;
};

/// What a pull of the trigger did.
struct ZrtRun
{
    /// Milliseconds that the tool turned.
    int duration = 0;
    /// The event message that follows.
    QVariantMap event;
};

/// An argument that must be a whole number and not negative; it may come signed
/// or unsigned. Nothing for any other.
std::optional<int> wholeNumber(QVariantMap const& arguments, QString const& key);

/// A simulated ZRT controller with its tool: carries out an instruction at once and answers with the reply.
/// It knows nothing of time or of how instructions reach it; ZrtEndpoint does, and gives the instructions
/// that take their time.
///
/// A reply to an instruction that cannot be carried out holds one key, "error", with a text, and the state is
/// as before.
class ZrtController
{
public:
    explicit ZrtController(ZrtState state);

    /// The names of all instructions, those that ZrtEndpoint carries out included.
    static QStringList instructions();

    ZrtState const& state() const { return m_state; }

    QVariantMap execute(QString const& instruction, QVariantMap const& arguments);

    /// The operator pulls the trigger: tightens or, in reverse, loosens one screw. Nothing if the lock
    /// forbids it.
    std::optional<ZrtRun> pullTrigger();
    /// The operator presses the direction switch.
    void pressReverse();

    /// Takes over a backup's presets from @p first to @p last and, if asked to, its parameters.
    void restore(ZrtBackup const& backup, int first, int last, bool withParameters);

private:
    using Handler = QVariantMap (ZrtController::*)(QVariantMap const&);
    static QMap<QString, Handler> const& handlers();

    QVariantMap getInfo(QVariantMap const& arguments);
    QVariantMap setLock(QVariantMap const& arguments);
    QVariantMap setLockScreen(QVariantMap const& arguments);
    QVariantMap setProgram(QVariantMap const& arguments);
    QVariantMap getPresetData(QVariantMap const& arguments);
    QVariantMap getRegister(QVariantMap const& arguments);
    QVariantMap setTriggerProgram(QVariantMap const& arguments);

    ZrtState m_state;
    std::mt19937_64 m_random;
};
