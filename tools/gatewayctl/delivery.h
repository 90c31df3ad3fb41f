#pragma once

#include "tools/gatewayctl/inventory.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/poll_set.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// One message for many units: to many at once, but over one connection to a unit at a time, as
/// units want it.

struct delivery_settings {
    channel via = channel::tcp;
    std::chrono::milliseconds timeout{}; ///< of one attempt
    std::size_t parallel = 1;            ///< units at once, at least one
    int retries = 0;                     ///< attempts after the first one
    /// Before another attempt: different each time, so that attempts that met do not meet again.
    std::chrono::milliseconds shortest_pause{500};
    std::chrono::milliseconds longest_pause{1500};
};

struct delivery_result {
    const inventory_unit &unit;
    std::string address; ///< where it was sent: resolved, with the port
    std::string failure; ///< of the last attempt; empty: none
    int attempts = 0;
    std::chrono::milliseconds time{}; ///< from the first attempt to the end of the last one
};

using message_fn = std::function<message_bytes()>;
using result_fn = std::function<void(const delivery_result &)>;

/// Sends each unit what the first function makes when its turn comes, and passes each unit's result to
/// the second one as soon as it is known. Returns when all are known. What has_to_end() ends early
/// fails; so does a unit that has the address of another one.
void deliver(const std::vector<inventory_unit> &units, const message_fn &make,
             const delivery_settings &settings, const result_fn &report);
