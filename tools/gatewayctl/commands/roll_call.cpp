#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/inventory_file.h"
#include "tools/gatewayctl/roll_call.h"
#include "tools/gatewayctl/sending.h"

#include <string>
#include <vector>

namespace {

std::string broadcast;
std::string expected_file;
bool calls_each = false;
double wait_time = 0;
std::string save_file;

std::vector<sockaddr_in> addresses_to_call() {
    const bool is_to_given = !common.units.to.empty();
    if (is_to_given && (!broadcast.empty() || !expected_file.empty())) {
        throw usage_failure("roll-call takes either --to for single units, or --broadcast or "
                            "--expect for all");
    }
    if (calls_each && expected_file.empty()) {
        throw usage_failure("--each needs to know the units: use --expect FILE");
    }
    if (calls_each && broadcast.empty()) {
        return {};
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

int call_as_asked() {
    refuse_dry_run("roll-call");
    roll_call_settings settings;
    settings.to = addresses_to_call();
    settings.calls_each = calls_each;
    settings.wait = to_milliseconds(wait_time);
    settings.as_json = common.as_json;
    settings.save_file = save_file;
    if (!expected_file.empty()) {
        settings.expected = {read_inventory(expected_file), common.units.group};
        if (!common.units.group.empty()) {
            of_group(settings.expected->units, common.units.group); // refuses one without units
        }
    }
    if (!save_file.empty()) {
        inventory_file checked(save_file); // before anybody is called
    }
    return call_roll(settings);
}

} // namespace

void add_roll_call(CLI::App &app) {
    CLI::App &command = add_command(
        app, "roll-call", "List the units that answer, and what they ask for", call_as_asked);
    command
        .add_option("--broadcast", broadcast,
                    "The network's broadcast address (default: 255.255.255.255)")
        ->type_name("ADDRESS");
    command
        .add_option("--expect", expected_file,
                    "Compare with this inventory: who is present, missing, moved or unknown")
        ->type_name("FILE");
    command.add_flag("--each", calls_each,
                     "Call each expected unit by itself, where no broadcast reaches it");
    add_duration(command, "--wait", wait_time, "2s", "How long to listen, e.g. 2s or 500ms");
    command
        .add_option("--save", save_file,
                    "Write the inventory as it is found, with hardware addresses, to this file")
        ->type_name("FILE");
}
