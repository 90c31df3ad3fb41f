#pragma once

#include "tools/gatewayctl/inventory.h"

#include <chrono>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <vector>

struct roll_expectation {
    std::vector<inventory_unit> units;
    std::string group; ///< only its units are reported on; empty: all
};

struct roll_call_settings {
    std::vector<sockaddr_in> to;      ///< possibly a broadcast address
    bool calls_each = false;          ///< each expected unit by itself, too
    std::chrono::milliseconds wait{}; ///< how long to listen
    bool as_json = false;
    std::optional<roll_expectation> expected;
    std::string save_file; ///< for the inventory as the roll call has found it; empty: none
};

/// Calls the roll, listens for a while, and prints each unit that answered or was expected, as a table
/// or as one line of JSON each. Returns the exit status: 1 if an expected unit is missing, or if no
/// unit answered.
int call_roll(const roll_call_settings &settings);
