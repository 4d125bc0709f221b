#pragma once

#include "zrt_formats.h"
#include "zrt_simulated_controller.h"

#include <random>
#include <utility>

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
    /// Whether the state has changed since the last call.
    bool takeChange() { return std::exchange(m_isChanged, false); }

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

    template <class T> void change(T& member, T value)
    {
        m_isChanged = m_isChanged || member != value;
        member = std::move(value);
    }

    ZrtState m_state;
    bool m_isChanged = false;
    std::mt19937_64 m_random;
};
