#pragma once

#include "tools/gatewayctl/inventory.h"

#include <chrono>
#include <netinet/in.h>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct roll_expectation {
    std::vector<inventory_unit> units;
    std::set<std::string> names; ///< only these are reported on; empty: all
};

struct roll_call_settings {
    std::vector<sockaddr_in> to;      ///< possibly a broadcast address
    std::vector<inventory_unit> each; ///< called by themselves, too
    std::chrono::milliseconds wait{}; ///< how long to listen
    bool as_json = false;
    std::optional<roll_expectation> expected;
    bool lists_answers = false; ///< nothing but the answers, although a unit is expected
    std::string save_file;      ///< for the inventory as the roll call has found it; empty: none
    std::string failed_file;    ///< for the missing units; empty: none
};

/// Calls the roll, listens for a while, and prints each unit that answered or was expected, as a table
/// or as one line of JSON each. Returns the exit status: 1 if an expected unit is missing or has
/// lost its address in the saved inventory, or if no unit answered, which saves none.
int call_roll(const roll_call_settings &settings);
