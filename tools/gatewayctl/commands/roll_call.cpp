#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/roll_call.h"
#include "tools/gatewayctl/selection.h"
#include "tools/gatewayctl/sending.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

std::string broadcast;
std::string expected_file;
bool calls_each = false;
double wait_time = 0;
std::string save_file;

// What would be ignored. As a default it is meant for the other commands.
void refuse_what_does_not_apply() {
    for (const char *option : {"--udp", "--force", "--timeout", "--parallel", "--retries"}) {
        if (is_asked_for(option)) {
            throw usage_failure(std::string("roll-call has no use for ") + option);
        }
    }
}

std::set<std::string> names_of(const std::vector<inventory_unit> &units) {
    std::set<std::string> names;
    std::ranges::transform(units, std::inserter(names, names.end()), &inventory_unit::name);
    return names;
}

sockaddr_in broadcast_address() {
    return resolve(broadcast.empty() ? "255.255.255.255" : broadcast);
}

// Whoever is there.
void call_everybody(roll_call_settings &settings) {
    if (calls_each) {
        throw usage_failure("--each needs to know the units: use --expect FILE");
    }
    if (is_asked_for("--failed-to")) {
        throw usage_failure("--failed-to needs to know the units: use --expect FILE");
    }
    settings.to = {broadcast_address()};
}

void call_and_compare(roll_call_settings &settings) {
    if (is_asked_for("--units")) {
        throw usage_failure("roll-call takes either --expect or --units");
    }
    settings.expected = {read_inventory(expected_file), {}};
    if (!common.units.group.empty()) {
        settings.expected->names = names_of(of_group(settings.expected->units, common.units.group));
    }
    if (calls_each) {
        settings.each = settings.expected->units;
    }
    if (!calls_each || !broadcast.empty()) {
        settings.to = {broadcast_address()};
    }
}

// Those that the common options name. The rest of the inventory is known, but neither called nor told
// of.
void call_chosen(roll_call_settings &settings) {
    const selection chosen = select_units(common.units);
    settings.lists_answers = !chosen.is_fleet;
    settings.expected = {chosen.inventory, names_of(chosen.units)};
    const std::set<std::string> known = names_of(chosen.inventory);
    std::ranges::copy_if(
        chosen.units, std::back_inserter(settings.expected->units),
        [&known](const inventory_unit &unit) { return !known.contains(unit.name); });
    if (!chosen.is_fleet) {
        settings.to = {resolve(chosen.units.front().address)};
        return;
    }
    if (!broadcast.empty()) {
        settings.to = {broadcast_address()};
    }
    if (broadcast.empty() || calls_each) {
        settings.each = chosen.units;
    }
}

void choose_calls(roll_call_settings &settings) {
    const bool is_to_given = !common.units.to.empty();
    if (is_to_given && (!broadcast.empty() || !expected_file.empty())) {
        throw usage_failure("roll-call takes either --to for single units, or --broadcast or "
                            "--expect for all");
    }
    if (!expected_file.empty()) {
        call_and_compare(settings);
    } else if (is_to_given || is_asked_for("--units") || is_asked_for("--group")) {
        call_chosen(settings);
    } else { // an inventory that is only a default narrows nothing
        call_everybody(settings);
    }
}

int call_as_asked() {
    refuse_dry_run("roll-call");
    refuse_what_does_not_apply();
    roll_call_settings settings;
    choose_calls(settings);
    settings.wait = to_milliseconds(wait_time);
    settings.as_json = common.as_json;
    settings.save_file = save_file;
    settings.failed_file = settings.expected ? common.failed_file : "";
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
