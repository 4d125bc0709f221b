#include "run_event.h"

#include "clock.h"

void RunEvents::publish(RunEvent const& event) const
{
    for (auto const& listener : m_listeners)
        listener(m_clock.now(), event);
}
