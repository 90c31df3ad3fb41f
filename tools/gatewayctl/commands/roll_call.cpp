#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/roll_call.h"

#include <string>
#include <vector>

namespace {

std::vector<sockaddr_in> addresses_to_call(const std::string &broadcast) {
    const bool is_to_given = !common.units.to.empty();
    if (is_to_given && !broadcast.empty()) {
        throw usage_failure("roll-call takes either --to for single units or --broadcast for all");
    }
    if (!is_to_given) {
        return {resolve(broadcast.empty() ? "255.255.255.255" : broadcast)};
    }
    std::vector<sockaddr_in> addresses;
    for (const inventory_unit &unit : select_units(common.units).units) {
        addresses.push_back(resolve(unit.address));
    }
    return addresses;
}

} // namespace

void add_roll_call(CLI::App &app) {
    static std::string broadcast;
    static double wait = 0;
    CLI::App &command =
        add_command(app, "roll-call", "List the units that answer, and what they ask for", [] {
            return call_roll(addresses_to_call(broadcast), to_milliseconds(wait), common.as_json);
        });
    command
        .add_option("--broadcast", broadcast,
                    "The network's broadcast address (default: 255.255.255.255)")
        ->type_name("ADDRESS");
    add_duration(command, "--wait", wait, "2s", "How long to listen, e.g. 2s or 500ms");
}
