#pragma once

#include "event_log.h"
#include "literals.h"
#include "scripted_endpoint.h"
#include "scripted_plugin.h"

#include "host/tool.h"
#include "host/workstation.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>
#include <utility>

/// A command with a parameter "p" that publishes "n" of each reply; one with a stop name listens.
inline CommandScript command(QString const& name, CommandScript::Execute execute,
                             QString const& stopName = {})
{
    CommandScript script;
    script.name = name;
    script.stopName = stopName;
    script.parameters = {{"p"_s, "vart"_s, {}, {}}};
    script.results = {{"n"_s, "int"_s, {}, -1}};
    script.execute = std::move(execute);
    script.onReply = [](ScriptedCommand& self, QVariantMap const& reply) {
        return self.publish("n"_s, reply.value("n"_s));
    };
    return script;
}

/// The same, which posts these instructions to "device".
inline CommandScript posting(QString const& name, QStringList const& instructions,
                             QString const& stopName = {})
{
    auto const post = [instructions](ScriptedCommand& self) {
        for (auto const& instruction : instructions)
            self.post("device"_s, instruction);
        return true;
    };
    return command(name, post, stopName);
}

/// A workstation with one tool whose commands are scripted, and an endpoint "device".
struct ScriptedStation
{
    explicit ScriptedStation(QList<CommandScript> scripts, QList<qint64> const& replyTimes = {5})
        : endpoint(clock, replyTimes)
        , plugin(std::move(scripts))
    {
        workstation.connectEndpoint("device"_s, endpoint);
        tool.emplace(plugin, QUuid(), workstation);
    }

    Order& order(QString const& name, QVariantMap const& parameters = {})
    {
        return tool->order(name, parameters);
    }
    void runAll()
    {
        while (clock.step()) {
        }
    }

    ZrtClock clock{ZrtClock::Pace::Simulated};
    RunEvents events{clock};
    EventLog log{events};
    Workstation workstation{clock, events};
    ScriptedEndpoint endpoint;
    ScriptedPlugin plugin;
    std::optional<Tool> tool;
};
