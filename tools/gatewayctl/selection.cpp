#include "tools/gatewayctl/selection.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <utility>

namespace {

std::string full_address(const inventory_unit &unit) {
    return with_port(unit.address);
}

// Names come first: one may look like an address.
inventory_unit find_unit(const std::vector<inventory_unit> &inventory, const std::string &wanted) {
    const auto named = std::ranges::find(inventory, wanted, &inventory_unit::name);
    if (named != inventory.end()) {
        return *named;
    }
    check_address(wanted);
    const auto found = std::ranges::find(inventory, with_port(wanted), full_address);
    return found != inventory.end() ? *found : inventory_unit{wanted, wanted, {}};
}

std::vector<inventory_unit> named_units(const std::vector<inventory_unit> &inventory,
                                        const std::vector<std::string> &names) {
    std::vector<inventory_unit> units;
    for (const std::string &name : names) {
        inventory_unit unit = find_unit(inventory, name);
        if (std::ranges::find(units, full_address(unit), full_address) != units.end()) {
            throw usage_failure("the unit " + quoted(name) + " is given twice");
        }
        units.push_back(std::move(unit));
    }
    return units;
}

std::vector<inventory_unit> all_units(const std::vector<inventory_unit> &inventory,
                                      const selection_settings &settings) {
    if (settings.inventory.empty()) {
        throw usage_failure("no unit given: use --to HOST[:PORT] or --units FILE");
    }
    if (inventory.empty()) {
        throw usage_failure(settings.inventory + " names no unit");
    }
    return settings.group.empty() ? inventory : of_group(inventory, settings.group);
}

} // namespace

selection select_units(const selection_settings &settings) {
    if (!settings.group.empty() && settings.inventory.empty()) {
        throw usage_failure("--group needs an inventory: use --units FILE");
    }
    if (!settings.group.empty() && !settings.to.empty()) {
        throw usage_failure("give either --to or --group");
    }
    std::vector<inventory_unit> inventory;
    if (!settings.inventory.empty()) {
        inventory = read_inventory(settings.inventory);
    }
    if (settings.to.empty()) {
        return {all_units(inventory, settings), true, inventory};
    }
    return {named_units(inventory, settings.to), settings.to.size() > 1, inventory};
}

std::string summary_of(const selection &selected) {
    return selected.is_fleet ? std::to_string(selected.units.size()) +
                                   (selected.units.size() == 1 ? " unit" : " units")
                             : selected.units.front().name;
}
