#pragma once

#include <functional>

namespace fastdelegate
{

/// A member function bound to an object of its class. This host lets std::function hold the two.
template <class P1, class P2, class R> class FastDelegate2
{
public:
    template <class Object>
    FastDelegate2(Object* object, R (Object::*function)(P1, P2))
        : m_call([object, function](P1 first, P2 second) { return (object->*function)(first, second); })
    {}

    R operator()(P1 first, P2 second) const { return m_call(first, second); }

private:
    std::function<R(P1, P2)> m_call;
};

} // namespace fastdelegate
