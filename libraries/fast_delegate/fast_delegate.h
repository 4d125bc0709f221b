#pragma once

#include <cstddef>
#include <utility>

namespace fastdelegate
{

/// A member function bound to one object, called with two arguments.
///
/// It is a small value: copying it copies two pointers and a pointer to a member function, and nothing is
/// allocated. It does not own its object and does not know when the object is gone; whoever keeps a delegate
/// longer than that must drop it.
///
///     FastDelegate2<int, QString const&, bool> onReply(this, &Listener::onReply);
///     bool const accepted = onReply(7, text);
template <class P1, class P2, class R = void> class FastDelegate2
{
public:
    FastDelegate2() = default;
    // As good as an empty one, wherever a delegate is wanted.
    FastDelegate2(std::nullptr_t) {} // NOLINT(google-explicit-constructor)

    /// Binds @p object to @p function, which may be declared in @p object's class or in any base of it.
    template <class Object, class Declaring> FastDelegate2(Object* object, R (Declaring::*function)(P1, P2))
    {
        bind<Declaring>(object, function);
    }

    template <class Object, class Declaring>
    FastDelegate2(Object const* object, R (Declaring::*function)(P1, P2) const)
    {
        bind<Declaring const>(object, function);
    }

    /// Calls the function on the object; an empty delegate does nothing and returns a value-initialised R.
    R operator()(P1 first, P2 second) const
    {
        return m_invoke(*this, std::forward<P1>(first), std::forward<P2>(second));
    }

    bool empty() const { return m_function == nullptr; }
    explicit operator bool() const { return !empty(); }
    void clear() { *this = FastDelegate2(); }

    friend bool operator==(FastDelegate2 const& a, std::nullptr_t) { return a.empty(); }
    friend bool operator!=(FastDelegate2 const& a, std::nullptr_t) { return !a.empty(); }

private:
    // Stands for a pointer to a member function of any class, and is turned back before it is used.
    struct AnyClass;
    using AnyFunction = R (AnyClass::*)(P1, P2);

    template <class Declaring, class Object, class Function> void bind(Object* object, Function function)
    {
        if (!function)
            return;
        // The conversion adjusts the address where the declaring class is not the first base.
        Declaring* const target = object;
        m_object = target;
        m_function = reinterpret_cast<AnyFunction>(function);
        m_invoke = [](FastDelegate2 const& self, P1 first, P2 second) -> R {
            auto const bound = reinterpret_cast<Function>(self.m_function);
            // A const member function was bound with a const object, any other with a mutable one.
            auto* const receiver = static_cast<Declaring*>(const_cast<void*>(self.m_object));
            return (receiver->*bound)(std::forward<P1>(first), std::forward<P2>(second));
        };
    }

    void const* m_object = nullptr;
    AnyFunction m_function = nullptr;
    // Never null, so that a call need not ask.
    R (*m_invoke)(FastDelegate2 const&, P1, P2) = [](FastDelegate2 const&, P1, P2) -> R { return R(); };
};

} // namespace fastdelegate
