#pragma once

#include "endpoint.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <memory>
#include <utility>

/// A simulated controller as an endpoint.
class ZrtDevice final : public Endpoint
{
public:
    explicit ZrtDevice(std::unique_ptr<ZrtSimulatedController> controller)
        : m_controller(std::move(controller))
    {}

    ZrtSimulatedController& controller() const { return *m_controller; }

    bool isConnected() const override { return m_controller->isConnected(); }
    void post(quint64 id, QString const& instruction, QVariantMap const& arguments, Reply onReply) override
    {
        m_controller->post(id, instruction, arguments, onReply);
    }
    void withdraw(quint64 id) override { m_controller->withdraw(id); }

private:
    std::unique_ptr<ZrtSimulatedController> const m_controller;
};
