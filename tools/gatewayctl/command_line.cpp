#include "tools/gatewayctl/command_line.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/text.h"

#include <charconv>
#include <map>
#include <utility>

common_settings common;

namespace {

std::function<int()> chosen;

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

} // namespace

void add_common_options(CLI::App &app) {
    app.add_option("--to", common.to, "The unit; the default port is 4000")
        ->type_name("HOST[:PORT]");
    app.add_flag("--udp", common.over_udp, "Send over UDP, which is not acknowledged");
    app.add_flag("--dry-run", common.is_dry_run, "Explain the message instead of sending it");
    add_duration(app, "--timeout", common.timeout, "5s", "How long to wait for a unit");
    app.set_version_flag("--version", "gatewayctl " + std::to_string(protocol::version));
}

CLI::App &add_command(CLI::App &app, const std::string &name, const std::string &help,
                      std::function<int()> action) {
    CLI::App *command = app.add_subcommand(name, help);
    command->fallthrough();
    command->final_callback([action = std::move(action)] { chosen = action; });
    return *command;
}

const std::function<int()> &chosen_action() {
    return chosen;
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

std::chrono::milliseconds to_milliseconds(double seconds) {
    return std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}
