#pragma once

#include "tools/gatewayctl/fleet.h"

#include <chrono>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <vector>

struct watch_settings {
    std::vector<sockaddr_in> calls;   ///< where to call the roll: units, or a broadcast address
    std::vector<unit_identity> units; ///< who ought to be there; none: whoever answers
    std::chrono::milliseconds every{};
    bool as_json = false;
    std::string metrics_file;          ///< empty: none
    std::optional<sockaddr_in> listen; ///< where to answer scrapes
};

/// Calls the roll again and again until SIGINT or SIGTERM, and shows who is there: on a terminal as a
/// table, otherwise a line for each change. It answers no requests of the units.
void watch(const watch_settings &settings);
