#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/date.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/sending.h"
#include "tools/gatewayctl/text.h"

#include <iostream>
#include <string>

namespace {

bool is_confirmed(const std::string &question) {
    std::string answer;
    std::cerr << question << " [y/N] " << std::flush; // standard output is for results
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

} // namespace

void add_set_date(CLI::App &app) {
    static std::string date;
    CLI::App &command = add_command(app, "set-date", "Set the unit's clock", [] {
        // As it is when it is sent: the last ones of many units may have to wait.
        return send_message(message_fn(
            [] { return make_set_date(date.empty() ? date_now() : date, common.via()); }));
    });
    command.add_option("DATE", date,
                       "In any form that date -s accepts; by default this machine's time");
}

void add_rotation(CLI::App &app) {
    static int degrees = 0;
    CLI::App &command = add_command(app, "rotation", "Rotate the page permanently",
                                    [] { return send_message(make_hdtv_settings(degrees)); });
    command.add_option("DEGREES", degrees, "Clockwise: 0, 90, 180 or 270")->required();
}

void add_reboot(CLI::App &app) {
    static bool is_sure = false;
    CLI::App &command =
        add_command(app, "reboot", "Reboot the unit's board; asks for confirmation", [] {
            if (!is_sure && !common.is_dry_run &&
                !is_confirmed("Reboot " + printable(summary_of(select_units(common.units))) +
                              "?")) {
                std::cerr << "gatewayctl: nothing was sent\n";
                return 1;
            }
            return send_message(make_reboot());
        });
    command.add_flag("--yes", is_sure, "Do not ask");
}

void add_play_audio(CLI::App &app) {
    static clip_settings settings;
    CLI::App &command = add_command(app, "play-audio", "Play a clip", [] {
        return send_message(make_play_audio(settings, common.via()));
    });
    command.add_option("ADDRESS", settings.address, "Address of the clip, ending in .wav or .raw")
        ->required();
    command.add_option("--device", settings.device,
                       "headphones; anything else selects the other output");
    command.add_option("--volume", settings.volume, "In percent (the unit's default: 90)");
    command.add_option("--channels", settings.channels,
                       "Channels of a .raw clip (the unit's default: 1)");
    command.add_option("--rate", settings.rate, "Rate of a .raw clip (the unit's default: 22050)");
    command.add_option("--sample-format", settings.sample_format,
                       "Sample format of a .raw clip (the unit's default: S16_LE)");
}

void add_set_gateway(CLI::App &app) {
    static std::string address;
    CLI::App &command =
        add_command(app, "set-gateway", "Set the unit's gateway, until it restarts",
                    [] { return send_message(make_set_gateway(address, common.via())); });
    command.add_option("ADDRESS", address, "For example 10.87.33.20")->required();
}
