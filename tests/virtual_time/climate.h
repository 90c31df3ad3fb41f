#pragma once

#include "happening.h"

namespace virtual_time {

/// The history of a seed: what its gateways, its television, its network and its machine do in this
/// time. A seed has a climate of its own: some things happen often, some never.
history make_history(std::uint64_t seed, std::int64_t duration);

} // namespace virtual_time
