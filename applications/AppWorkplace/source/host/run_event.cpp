#include "run_event.h"

#include <zrt_controller/zrt_simulated_controller.h>

void RunEvents::publish(RunEvent const& event) const
{
    for (auto const& listener : m_listeners)
        listener(m_clock.now(), event);
}
