#pragma once

#include "literals.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <QDebug>

#include <memory>

/// A value with its type, whatever it is made of.
inline QString exactly(QVariant const& value)
{
    QStringList parts;
    if (value.type() == QVariant::Map) {
        QVariantMap const map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            parts += it.key() + ": "_s + exactly(*it);
        return "{%1}"_s.arg(parts.join(", "_s));
    }
    if (value.type() == QVariant::List) {
        QVariantList const list = value.toList();
        for (auto const& item : list)
            parts += exactly(item);
        return "[%1]"_s.arg(parts.join(", "_s));
    }
    return QString::fromLatin1(value.typeName()) + QLatin1Char(' ') + value.toString();
}

/// Everything in a fault, as one text.
inline QString shown(ZrtFault const& fault)
{
    QString text;
    QDebug(&text) << fault.kind << fault.instruction << "nth" << fault.nth << "probability"
                  << fault.probability << "delay" << fault.delay << "key" << fault.key;
    return text;
}

/// Everything in a state, as one text.
inline QString shown(ZrtState const& state)
{
    QMap<int, QList<int>> presets;
    for (auto it = state.presets.cbegin(); it != state.presets.cend(); ++it)
        presets[it.key()] = {it->control,  it->torque,   it->maxTorque, it->snugTorque, it->targetAngle,
                             it->minAngle, it->maxAngle, it->speed,     it->freeSpeed,  it->maxTime};
    QList<int> screws;
    for (ZrtScrew const screw : state.screws)
        screws += static_cast<int>(screw);
    QString text;
    QDebug(&text) << state.model << state.serialNumber << state.firmware << "lock" << state.lock
                  << "screenLocked" << state.isScreenLocked << "presets" << presets << "unwritable"
                  << state.unwritablePresets << "parameters" << state.parameters << "program" << state.program
                  << "triggerMode" << state.isTriggerMode << "reverse" << state.isReverse << "eventCount"
                  << state.eventCount << "seed" << state.seed << "screws" << screws;
    return text;
}

inline ZrtFault fault(ZrtFault::Kind kind, char const* instruction, int nth = 1, int delay = 0,
                      char const* key = "")
{
    return {kind, QString::fromLatin1(instruction), nth, 0, delay, QString::fromLatin1(key)};
}

inline QVariantMap lockArguments(int lock)
{
    return {{"lock"_s, lock}};
}

inline QVariantMap restoreArguments(QString const& fileName, QVariant const& first, QVariant const& last,
                                    bool withParameters = false)
{
    return {{"filePath"_s, fileName},
            {"startPreset"_s, first},
            {"endPreset"_s, last},
            {"loadControllerParams"_s, withParameters}};
}

/// A controller with its clock, and all that comes back: "5 #1 {doneOk: bool true}" is a reply to
/// instruction 1 after 5 ms.
struct ControllerBench
{
    explicit ControllerBench(ZrtSetup const& setup = {})
        : controller(ZrtSimulatedController::create(setup, clock))
    {
        if (!controller)
            qFatal("the set-up is not valid");
    }

    bool post(quint64 id, char const* instruction, QVariantMap const& arguments = {})
    {
        return controller->post(id, QString::fromLatin1(instruction), arguments,
                                [this, id](QVariantMap const& reply) {
                                    replies += "%1 #%2 %3"_s.arg(clock.now()).arg(id).arg(exactly(reply));
                                    answered += id;
                                });
    }
    bool setLock(quint64 id, int lock) { return post(id, "setLock", lockArguments(lock)); }
    /// All replies, once everything that is planned has happened.
    QStringList allReplies()
    {
        while (clock.step()) {
        }
        return replies;
    }

    ZrtClock clock;
    std::unique_ptr<ZrtSimulatedController> controller;
    QStringList replies;
    QList<quint64> answered; ///< the ids of these
};
