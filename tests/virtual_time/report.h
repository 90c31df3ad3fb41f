#pragma once

#include "run.h"

#include <string>

namespace virtual_time {

/// The violation of a seed, the command that repeats it, and its shortest history.
std::string report_violation(std::uint64_t seed, int hours, const history &events,
                             const outcome &result);

void add(counters &sum, const counters &more);
std::string describe(const counters &counts);

} // namespace virtual_time
