#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The inventory: which units there are. A text file with a line a unit:
///
///     # name     address       group
///     station-1  10.87.33.50   north   hw=02:00:0a:57:21:32   # above the door
///     station-2  10.87.33.51
///
/// Fields are separated by blanks. The group may be missing, or "-". The hardware address may be
/// given, after the address. What follows a "#" at the beginning of a field is a comment.

struct inventory_unit {
    std::string name;
    std::string address;            ///< HOST or HOST:PORT, not resolved yet
    std::string group;              ///< empty: none
    std::string hardware_address{}; ///< "02:00:0a:57:21:32"; empty: not known
    std::string comment{};          ///< without the "#"
    std::string above{};            ///< comments and empty lines above it, with their ends
    std::string below{};            ///< the same below the last unit
};

/// Reads the file. A run_failure if it cannot be read. A usage_failure, with
/// the file and the line, if a line is wrong, or if a name, an address or a hardware address appears
/// a second time.
std::vector<inventory_unit> read_inventory(const std::string &file);

/// The same from the file's text; the name is for the errors.
std::vector<inventory_unit> parse_inventory(std::string_view text, const std::string &file);

/// A line as the inventory has it, without the end of the line.
std::string to_text(const inventory_unit &unit);

/// Those of the group, in their order. A usage_failure if there are none.
std::vector<inventory_unit> of_group(const std::vector<inventory_unit> &units,
                                     const std::string &group);
