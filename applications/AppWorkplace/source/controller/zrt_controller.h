#pragma once

#include <QString>
#include <QVariant>

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
};

/// A simulated ZRT controller: carries out an instruction at once and answers with the reply. It knows
/// nothing of time or of how instructions reach it; ZrtEndpoint does.
///
/// A reply to an instruction that cannot be carried out holds one key, "error", with a text, and the state is
/// as before.
class ZrtController
{
public:
    explicit ZrtController(ZrtState state) : m_state(std::move(state)) {}

    ZrtState const& state() const { return m_state; }

    QVariantMap execute(QString const& instruction, QVariantMap const& arguments);

private:
    QVariantMap getInfo(QVariantMap const& arguments);
    QVariantMap setLock(QVariantMap const& arguments);
    QVariantMap setLockScreen(QVariantMap const& arguments);

    ZrtState m_state;
};
