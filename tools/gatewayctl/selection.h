#pragma once

#include "tools/gatewayctl/inventory.h"

#include <string>
#include <vector>

/// Which units a command is for.

struct selection_settings {
    std::vector<std::string> to; ///< names of the inventory, or addresses
    std::string inventory;       ///< its file; empty: none
    std::string group;           ///< empty: all
};

struct selection {
    std::vector<inventory_unit> units;
    bool is_fleet = false;                   ///< not just one unit that was named
    std::vector<inventory_unit> inventory{}; ///< all of it; empty: none
};

/// The units that are named; without a name all of the inventory, or of the group. A unit that is in
/// no inventory has its address as its name. A usage_failure if it would be none, if one is named
/// twice, or if an address is malformed. Nothing is resolved.
selection select_units(const selection_settings &settings);

/// "10.87.33.50", or "200 units".
std::string summary_of(const selection &selected);
