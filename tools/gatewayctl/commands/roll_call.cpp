#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/roll_call.h"

#include <string>

void add_roll_call(CLI::App &app) {
    static std::string broadcast;
    static double wait = 0;
    static bool as_json = false;
    CLI::App &command =
        add_command(app, "roll-call", "List the units that answer, and what they ask for", [] {
            if (!common.to.empty() && !broadcast.empty()) {
                throw usage_failure(
                    "roll-call takes either --to for one unit or --broadcast for all");
            }
            const std::string everybody = broadcast.empty() ? "255.255.255.255" : broadcast;
            return call_roll(resolve(common.to.empty() ? everybody : common.to),
                             to_milliseconds(wait), as_json);
        });
    command
        .add_option("--broadcast", broadcast,
                    "The network's broadcast address (default: 255.255.255.255)")
        ->type_name("ADDRESS");
    add_duration(command, "--wait", wait, "2s", "How long to listen, e.g. 2s or 500ms");
    command.add_flag("--json", as_json, "Print a line of JSON for each unit");
}
