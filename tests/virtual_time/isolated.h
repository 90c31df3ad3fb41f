#pragma once

#include "run.h"

namespace virtual_time {

/// live_through in a process of its own: a crash or a hang is an outcome like any other.
outcome live_isolated(const history &events, std::int64_t duration);

} // namespace virtual_time
