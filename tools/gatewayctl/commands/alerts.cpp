#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/sending.h"

#include <cstdint>
#include <string>
#include <vector>

namespace {

void add_text(CLI::App &command, std::string &text) {
    allow_empty(*command
                     .add_option("--text", text,
                                 "The text, \\n for a new line; an empty one ends the alert")
                     ->required());
}

} // namespace

void add_display_alert(CLI::App &app) {
    static display_alert_settings settings;
    CLI::App &command =
        add_command(app, "display-alert", "Start, update or end a text-only alert", [] {
            settings.text = unescape(settings.text);
            return send_message(make_display_alert(settings, common.via()));
        });
    add_text(command, settings.text);
    command.add_option("--flag", settings.flag, "The alert flag: 1 is on")->capture_default_str();
    command.add_option("--turnout", settings.turnout,
                       "Turnout time in seconds; by default the unit keeps the current one");
}

void add_detail_alert(CLI::App &app) {
    static detail_alert_settings settings;
    static std::vector<std::string> units;
    CLI::App &command = add_command(
        app, "detail-alert", "Start, update or end an alert with units and turnout values", [] {
            settings.text = unescape(settings.text);
            for (const std::string &unit : units) {
                settings.units.push_back(parse_unit(unit));
            }
            return send_message(make_detail_alert(settings, common.via()));
        });
    add_text(command, settings.text);
    command
        .add_option(
            "--unit", units,
            "A unit and its color, 1 to 16 or its name, e.g. E1:2 or E1:blue; may be given up to\n"
            "16 times")
        ->allow_extra_args(false)
        ->type_name("NAME[:COLOR]");
    command.add_option("--flag", settings.flag, "The alert flag: 1 is on")->capture_default_str();
    command
        .add_option("--turnout", settings.turnout_end,
                    "Turnout time in seconds: when the timer ends")
        ->capture_default_str();
    command
        .add_option("--zero", settings.turnout_zero,
                    "Seconds after the start at which the timer reaches zero; 0: at its end")
        ->capture_default_str();
    command.add_flag(
        "--reverse", [](std::int64_t) { settings.turnout_reverse = 1; }, "The timer counts up");
}

void add_end_alert(CLI::App &app) {
    add_command(app, "end-alert", "End the active alert",
                [] { return send_message(make_detail_alert({}, common.via())); });
}

void add_turnout_timer(CLI::App &app) {
    static int seconds = 0;
    CLI::App &command = add_command(
        app, "turnout-timer", "Set the turnout timer, which takes effect with the next alert text",
        [] { return send_message(make_hdtv_alert(seconds)); });
    command.add_option("SECONDS", seconds, "Counted from the alert's start")->required();
}

void add_stop_turnout(CLI::App &app) {
    add_command(app, "stop-turnout", "Stop the turnout timer; the alert stays", [] {
        require_tcp("stop-turnout");
        return send_message(make_stop_turnout());
    });
}

void add_map(CLI::App &app) {
    static std::string address;
    CLI::App &command = add_command(app, "map", "Show a map next to the active alert", [] {
        require_tcp("map");
        return send_message(make_set_map_address(address, common.via()));
    });
    command.add_option("ADDRESS", address, "Address of a picture or a page, http or https")
        ->required();
}
