// A command-line gateway: sends messages to units, calls the roll, answers units, and explains
// messages.

#include "hdtv/protocol.h"
#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/date.h"
#include "tools/gatewayctl/describe.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/page.h"
#include "tools/gatewayctl/roll_call.h"
#include "tools/gatewayctl/serve.h"
#include "tools/gatewayctl/socket.h"
#include "tools/gatewayctl/text.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr int usage_status = 2;

constexpr const char *about =
    "Sends messages to a station display unit, calls the roll of all units, answers them like a\n"
    "gateway, and explains messages.";

constexpr const char *examples =
    "Examples:\n"
    "  gatewayctl roll-call --broadcast 10.87.33.255\n"
    "  gatewayctl --to 10.87.33.50 detail-alert --text 'STRUCTURE FIRE' --unit E1:2 --turnout 120\n"
    "  gatewayctl --to 10.87.33.50 map http://10.87.33.20/map.png\n"
    "  gatewayctl --to 10.87.33.50 end-alert\n"
    "  gatewayctl --to 10.87.33.50 page --framed http://10.87.33.20/news\n"
    "  gatewayctl --dry-run display-alert --text DRILL\n"
    "  gatewayctl decode 31 01\n"
    "\n"
    "Exit status: 0 done; 1 failed, or decode found a fault; 2 invalid request.";

struct common_settings {
    std::string to;
    bool over_udp = false;
    bool is_dry_run = false;
    double timeout = 0; // seconds

    channel via() const {
        return over_udp ? channel::udp : channel::tcp;
    }
};

common_settings common;

// The selected command's action; returns the exit status.
std::function<int()> chosen;

std::chrono::milliseconds to_milliseconds(double seconds) {
    return std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}

// "2s", "500ms", "5min" or a number of seconds.
double parse_duration(const std::string &text) {
    const std::map<std::string, double> units{{"", 1}, {"ms", 0.001}, {"s", 1}, {"min", 60}};
    double number = 0;
    const auto [unit, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto found = units.find(std::string(unit, text.data() + text.size()));
    constexpr double a_day = 86400;
    if (error != std::errc() || found == units.end() || !(number > 0) ||
        number * found->second > a_day) {
        throw usage_failure(::quoted(text) + " is not a duration such as 2s, 500ms or 5min");
    }
    return number * found->second;
}

void add_duration(CLI::App &command, const std::string &name, double &seconds,
                  const char *initially, const std::string &help) {
    seconds = parse_duration(initially);
    command
        .add_option_function<std::string>(
            name, [&seconds](const std::string &text) { seconds = parse_duration(text); }, help)
        ->type_name("TIME")
        ->default_str(initially);
}

// Commands that send one message.

int send_message(const message_bytes &message) {
    if (message.empty()) {
        throw usage_failure("the message is empty");
    }
    if (message.size() > static_cast<std::size_t>(message_limit(common.via()))) {
        throw usage_failure("the message has " + bytes_text(message.size()) +
                            "; it may have at most " + std::to_string(message_limit(common.via())));
    }
    if (common.is_dry_run) {
        std::cout << to_text(describe_message(message, common.via()), message);
        return 0;
    }
    if (common.to.empty()) {
        throw usage_failure("no unit given: use --to HOST[:PORT]");
    }
    const sockaddr_in unit = resolve(common.to);
    if (common.over_udp) {
        send_over_udp(unit, message);
        std::printf("%s sent to %s; UDP does not confirm delivery\n",
                    bytes_text(message.size()).c_str(), to_text(unit).c_str());
    } else {
        send_over_tcp(unit, message, to_milliseconds(common.timeout));
        std::printf("%s taken by %s\n", bytes_text(message.size()).c_str(), to_text(unit).c_str());
    }
    return 0;
}

void require_tcp(const char *command) {
    if (common.over_udp) {
        throw usage_failure(std::string(command) + " works over TCP only: omit --udp");
    }
}

CLI::App &add_command(CLI::App &app, const std::string &name, const std::string &help,
                      std::function<int()> action) {
    CLI::App *command = app.add_subcommand(name, help);
    command->fallthrough();
    command->final_callback([action = std::move(action)] { chosen = action; });
    return *command;
}

void add_display_alert(CLI::App &app) {
    static display_alert_settings settings;
    CLI::App &command =
        add_command(app, "display-alert", "Start, update or end a text-only alert", [] {
            settings.text = unescape(settings.text);
            return send_message(make_display_alert(settings, common.via()));
        });
    command
        .add_option("--text", settings.text,
                    "The text, \\n for a new line; an empty one ends the alert")
        ->required();
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
    command
        .add_option("--text", settings.text,
                    "The text, \\n for a new line; an empty one ends the alert")
        ->required();
    command
        .add_option("--unit", units,
                    "A unit and its color, 1 to 16, e.g. E1:2; may be given up to 16 times")
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

void add_set_date(CLI::App &app) {
    static std::string date;
    CLI::App &command = add_command(app, "set-date", "Set the unit's clock", [] {
        return send_message(make_set_date(date.empty() ? date_now() : date, common.via()));
    });
    command.add_option("DATE", date,
                       "In any form that date -s accepts; by default this machine's time");
}

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

void add_rotation(CLI::App &app) {
    static int degrees = 0;
    CLI::App &command = add_command(app, "rotation", "Rotate the page permanently",
                                    [] { return send_message(make_hdtv_settings(degrees)); });
    command.add_option("DEGREES", degrees, "Clockwise: 0, 90, 180 or 270")->required();
}

bool is_confirmed(const std::string &question) {
    std::string answer;
    std::cout << question << " [y/N] " << std::flush;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

void add_reboot(CLI::App &app) {
    static bool is_sure = false;
    CLI::App &command =
        add_command(app, "reboot", "Reboot the unit's board; asks for confirmation", [] {
            if (!is_sure && !common.is_dry_run && !common.to.empty() &&
                !is_confirmed("Reboot " + printable(common.to) + "?")) {
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

// Bytes from the command line, a file or standard input.

struct bytes_settings {
    std::vector<std::string> words;
    std::string file;
};

void add_bytes(CLI::App &command, bytes_settings &settings) {
    command.add_option(
        "HEX", settings.words,
        "The bytes in hexadecimal, optionally separated by spaces, colons or commas");
    command.add_option("--file", settings.file, "A file with the raw bytes; - is standard input");
}

message_bytes read_bytes(std::istream &input) {
    return {std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
}

message_bytes read_bytes(const bytes_settings &settings) {
    if (settings.words.empty() == settings.file.empty()) {
        throw usage_failure("give the bytes either as hexadecimal words or with --file");
    }
    if (settings.file.empty()) {
        std::string text;
        for (const std::string &word : settings.words) {
            text += word + " ";
        }
        return parse_hex(text);
    }
    if (settings.file == "-") {
        return read_bytes(std::cin);
    }
    std::ifstream file(settings.file, std::ios::binary);
    if (!file) {
        throw run_failure("cannot open " + settings.file + ": " + reason(errno));
    }
    return read_bytes(file);
}

void add_raw(CLI::App &app) {
    static bytes_settings settings;
    add_bytes(add_command(app, "raw", "Send arbitrary bytes",
                          [] { return send_message(read_bytes(settings)); }),
              settings);
}

void add_decode(CLI::App &app) {
    static bytes_settings settings;
    static bool is_record = false;
    CLI::App &command =
        add_command(app, "decode",
                    "Explain a message: its fields, what a unit does with it, what is wrong", [] {
                        const message_bytes bytes = read_bytes(settings);
                        const description described = is_record
                                                          ? describe_record(bytes)
                                                          : describe_message(bytes, common.via());
                        std::cout << to_text(described, bytes);
                        return described.faults.empty() ? 0 : 1;
                    });
    add_bytes(command, settings);
    command.add_flag("--record", is_record, "Treat it as a record sent by a unit");
}

// The gateway's own side.

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

void add_serve(CLI::App &app) {
    static serve_settings settings;
    static std::string roll_call;
    static double every = 0;
    CLI::App &command = add_command(
        app, "serve", "Act as a small gateway: answer the units' requests and print what arrives",
        [] {
            // Reject bad values before doing anything.
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

void add_common_options(CLI::App &app) {
    app.add_option("--to", common.to, "The unit; the default port is 4000")
        ->type_name("HOST[:PORT]");
    app.add_flag("--udp", common.over_udp, "Send over UDP, which is not acknowledged");
    app.add_flag("--dry-run", common.is_dry_run, "Explain the message instead of sending it");
    add_duration(app, "--timeout", common.timeout, "5s", "How long to wait for a unit");
    app.set_version_flag("--version", "gatewayctl " + std::to_string(protocol::version));
}

// The text may quote the command line, which a script may have taken from an untrusted source.
void complain(const char *words) {
    std::fprintf(stderr, "gatewayctl: %s\n", printable(words).c_str());
}

int run(int argc, char **argv) {
    CLI::App app(about, "gatewayctl");
    app.footer("gatewayctl --help lists the options common to all commands.");
    app.require_subcommand(0, 1);
    add_common_options(app);
    for (const auto add :
         {add_display_alert, add_detail_alert, add_map, add_stop_turnout, add_end_alert,
          add_turnout_timer, add_set_date, add_page, add_rotation, add_reboot, add_play_audio,
          add_set_gateway, add_raw, add_roll_call, add_serve, add_decode}) {
        add(app);
    }
    app.footer(examples); // for the main help only; the commands keep the footer above
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &help_or_version) {
        return app.exit(help_or_version);
    } catch (const CLI::ParseError &error) {
        complain(error.what());
        std::fputs("See gatewayctl --help.\n", stderr);
        return usage_status;
    }
    if (!chosen) {
        throw usage_failure("no command given: see gatewayctl --help for a list");
    }
    return chosen();
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const usage_failure &failure) {
        complain(failure.what());
        return usage_status;
    } catch (const std::exception &failure) {
        complain(failure.what());
        return 1;
    }
}
