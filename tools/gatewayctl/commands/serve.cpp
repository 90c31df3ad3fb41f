#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/sending.h"
#include "tools/gatewayctl/serve.h"

#include <string>

void add_serve(CLI::App &app) {
    static serve_settings settings;
    static std::string roll_call;
    static double every = 0;
    CLI::App &command = add_command(
        app, "serve", "Act as a small gateway: answer the units' requests and print what arrives",
        [] {
            // Reject bad values before doing anything.
            refuse_dry_run("serve");
            make_hdtv_settings(settings.desk.rotation);
            if (!roll_call.empty()) {
                settings.roll_call = resolve(roll_call);
            }
            settings.every = to_milliseconds(every);
            settings.desk.timeout = to_milliseconds(common.timeout);
            serve(settings);
            return 0;
        });
    command
        .add_option("--rotation", settings.desk.rotation,
                    "The rotation sent to units as their settings")
        ->capture_default_str();
    command
        .add_option("--roll-call", roll_call,
                    "Call the roll at this address, so that the units do not reset themselves")
        ->type_name("ADDRESS");
    add_duration(command, "--every", every, "5min", "How often, e.g. 300s or 5min");
}
