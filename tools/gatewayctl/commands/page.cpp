#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/page.h"
#include "tools/gatewayctl/sending.h"

#include <iostream>
#include <string>

namespace {

int send_page(const page_settings &settings) {
    const std::string address = page_address(settings);
    const int status = send_message(make_set_page_address(address, common.via()));
    if (!is_of_station_page(address)) {
        std::cerr
            << "gatewayctl: warning: the unit takes its page for dead and resets itself after "
               "about 20 minutes unless an alert comes first"
            << (address.empty() ? "\n" : "; --framed prevents this\n");
    }
    return status;
}

} // namespace

void add_page(CLI::App &app) {
    static page_settings settings;
    CLI::App &command = add_command(app, "page", "Show another page until the next alert",
                                    [] { return send_page(settings); });
    command.add_option("ADDRESS", settings.address, "Address of the page");
    command.add_flag("--framed", settings.is_framed,
                     "In a frame of the station page, which keeps the unit from resetting itself");
    command.add_flag("--blank", settings.is_blank, "Show nothing: the browser is stopped");
    command.add_flag("--card", settings.is_card, "Show the test card for the television");
    command.add_flag("--status", settings.is_status,
                     "Show the unit's addresses, gateway, clock, versions and last document");
}
