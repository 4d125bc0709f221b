// A delegate, through which every reply reaches its handler, beside the other ways to call one. A round is a
// hundred calls, or a hundred times bound and copied.

#include "measure.h"

#include <fast_delegate/fast_delegate.h>

#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>

namespace
{

constexpr int c_callsPerRound = 100;

using Reply = QMap<QString, QVariant>;
using Delegate = fastdelegate::FastDelegate2<quint64, Reply const&, bool>;
using Function = std::function<bool(quint64, Reply const&)>;

/// Who can be called by a virtual function.
class Handler
{
public:
    virtual ~Handler() = default;
    virtual bool onVirtual(quint64 instructionId, Reply const& reply) = 0;
};

/// Who is called in every way, and does next to nothing.
class Listener final : public QObject, public Handler
{
    Q_OBJECT

public:
    [[gnu::noinline]] bool onReply(quint64 instructionId, Reply const& reply)
    {
        m_sum += instructionId;
        return reply.isEmpty();
    }
    [[gnu::noinline]] bool onVirtual(quint64 instructionId, Reply const& reply) override
    {
        m_sum += instructionId;
        return reply.isEmpty();
    }

private:
    quint64 m_sum = 0;
};

class Sender final : public QObject
{
    Q_OBJECT

signals:
    // NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): moc has its own names
    void sigReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
};

Delegate bindDelegate(Listener* listener)
{
    return Delegate(listener, &Listener::onReply);
}

Function bindFunction(Listener* listener)
{
    // NOLINTNEXTLINE(modernize-avoid-bind): a lambda would tell the compiler which function it is
    return std::bind(&Listener::onReply, listener, std::placeholders::_1, std::placeholders::_2);
}

/// Calls @p call a hundred times.
template <class Call> auto calling(Call call)
{
    return [call = std::move(call), reply = Reply()] {
        for (int i = 0; i < c_callsPerRound; ++i)
            call(static_cast<quint64>(i), reply);
    };
}

/// Binds a listener with @p bind a hundred times, and copies what came out.
template <class Bind> auto binding(Bind bind)
{
    return [bind, listener = std::make_shared<Listener>()] {
        for (int i = 0; i < c_callsPerRound; ++i) {
            auto const bound = bind(listener.get());
            auto const copy = bound;
            benchmark::DoNotOptimize(&bound);
            benchmark::DoNotOptimize(&copy);
        }
    };
}

void addCalls()
{
    measure::add("delegate/call/plugin", [] {
        auto listener = std::make_shared<Listener>();
        return calling([listener, delegate = Delegate(listener.get(), &Listener::onReply)](
                           quint64 instructionId, Reply const& reply) {
            benchmark::DoNotOptimize(&delegate);
            benchmark::DoNotOptimize(delegate(instructionId, reply));
        });
    });
    measure::add("delegate/call/lambda", [] {
        auto listener = std::make_shared<Listener>();
        Function const function = [handler = listener.get()](quint64 instructionId, Reply const& reply) {
            return handler->onReply(instructionId, reply);
        };
        return calling([listener, function](quint64 instructionId, Reply const& reply) {
            benchmark::DoNotOptimize(&function);
            benchmark::DoNotOptimize(function(instructionId, reply));
        });
    });
    // Knows no more than the delegate does: an object and a pointer to a member function.
    measure::add("delegate/call/function", [] {
        auto listener = std::make_shared<Listener>();
        return calling(
            [listener, function = bindFunction(listener.get())](quint64 instructionId, Reply const& reply) {
                benchmark::DoNotOptimize(&function);
                benchmark::DoNotOptimize(function(instructionId, reply));
            });
    });
    measure::add("delegate/call/virtual", [] {
        auto listener = std::make_shared<Listener>();
        return calling([listener, handler = static_cast<Handler*>(listener.get())](quint64 instructionId,
                                                                                   Reply const& reply) {
            benchmark::DoNotOptimize(&handler);
            benchmark::DoNotOptimize(handler->onVirtual(instructionId, reply));
        });
    });
    measure::add("delegate/call/signal", [] {
        auto listener = std::make_shared<Listener>();
        auto sender = std::make_shared<Sender>();
        QObject::connect(sender.get(), &Sender::sigReply, listener.get(), &Listener::onReply,
                         Qt::DirectConnection);
        return calling([listener, sender](quint64 instructionId, Reply const& reply) {
            emit sender->sigReply(instructionId, reply);
        });
    });
}

void addBinds()
{
    measure::add("delegate/bind/plugin", [] { return binding(&bindDelegate); });
    measure::add("delegate/bind/function", [] { return binding(&bindFunction); });
}

} // namespace

int main(int argc, char** argv)
{
    addCalls();
    addBinds();
    return measure::run(argc, argv);
}

#include "bench_delegate.moc"
