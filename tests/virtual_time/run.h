#pragma once

#include "happening.h"
#include "station.h"

#include <string>

namespace virtual_time {

struct outcome {
    bool is_violated = false;
    std::int64_t at = 0;   ///< the violation
    std::string text = {}; ///< what was violated
    counters counts = {};
};

/// Lets a unit live through a history, from the start to its end, and checks every step.
outcome live_through(const history &events, std::int64_t duration);

/// The event loop.
void run_loop();

} // namespace virtual_time
