#pragma once

#include <QString>
#include <QVariant>

#include <functional>

/// Something that carries out instructions, such as the controller behind the name "device".
class Endpoint
{
public:
    using Reply = std::function<void(QVariantMap const&)>;

    Endpoint() = default;
    virtual ~Endpoint() = default;
    Endpoint(Endpoint const&) = delete;
    Endpoint& operator=(Endpoint const&) = delete;

    /// Whether instructions reach it.
    virtual bool isConnected() const { return true; }
    /// Takes an instruction. @p onReply is called with each reply, never before this has returned.
    virtual void post(quint64 id, QString const& instruction, QVariantMap const& arguments,
                      Reply onReply) = 0;
    /// No further replies to this instruction are wanted.
    virtual void withdraw(quint64 id) = 0;
};
