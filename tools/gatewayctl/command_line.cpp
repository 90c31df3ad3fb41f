#include "tools/gatewayctl/command_line.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/own_address.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <istream>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

common_settings common;

namespace {

std::function<int()> chosen;

std::vector<const CLI::Option *> may_be_empty;

std::set<std::string> defaulted; // options that have their values from the file
std::set<std::string> asked_for;

constexpr const char *defaults_file_name = "/.config/gatewayctl.conf";

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

std::string environment(const char *name) {
    const char *value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// Whether the command asks for all units in another way than by the common options.
bool is_broadcast(const CLI::App &app) {
    const auto is_given = [](const CLI::App *command, const char *name) {
        const CLI::Option *option = command->get_option_no_throw(name);
        return option != nullptr && option->count() > 0;
    };
    return std::ranges::any_of(app.get_subcommands(), [&is_given](const CLI::App *command) {
        return is_given(command, "--broadcast") || is_given(command, "--expect");
    });
}

/// The file with the defaults. What the command line says about the units, and then what the
/// environment says, replaces all that the file says about them: neither a `to` nor a `group` in the
/// file narrows the `--units` of the command line.
class defaults_file : public CLI::ConfigBase {
  public:
    explicit defaults_file(const CLI::App &app) : app_(app) {}

    std::vector<CLI::ConfigItem> from_config(std::istream &input) const override {
        auto found = CLI::ConfigBase::from_config(input);
        std::erase_if(found, [this](const CLI::ConfigItem &item) {
            return item.parents.empty() && is_replaced(item.name);
        });
        const std::string unit = environment("GATEWAYCTL_TO");
        if (!unit.empty() && !is_given("--to") && !are_units_given()) {
            found.push_back({{}, "to", {unit}});
        }
        for (const CLI::ConfigItem &item : found) {
            if (item.parents.empty() && !is_given("--" + item.name)) {
                defaulted.insert("--" + item.name);
            }
        }
        return found;
    }

  private:
    bool is_given(const std::string &name) const {
        const CLI::Option *option = app_.get_option_no_throw(name);
        return option != nullptr && option->count() > 0;
    }
    bool are_units_given() const {
        return is_given("--units") || is_given("--group") || is_broadcast(app_);
    }
    bool is_replaced(const std::string &name) const {
        const bool has_unit = is_given("--to") || !environment("GATEWAYCTL_TO").empty();
        const bool has_inventory = !environment("GATEWAYCTL_UNITS").empty();
        return (name == "to" && (are_units_given() || has_unit)) ||
               (name == "group" &&
                (has_unit || has_inventory || is_given("--units") || is_broadcast(app_))) ||
               (name == "units" && has_inventory);
    }

    const CLI::App &app_;
};

void add_selection_options(CLI::App &app) {
    selection_settings &units = common.units;
    app.add_option("--to", units.to,
                   "A unit, or its name in the inventory; may be repeated. The default port is\n"
                   "4000, the default unit $GATEWAYCTL_TO")
        ->allow_extra_args(false)
        ->type_name("HOST[:PORT]");
    app.add_option("--units", units.inventory,
                   "The inventory: without --to, the command is for all units in it. A line for\n"
                   "each: NAME ADDRESS [GROUP] [hw=HARDWARE ADDRESS] [# COMMENT]. The default is\n"
                   "$GATEWAYCTL_UNITS")
        ->type_name("FILE");
    app.add_option("--group", units.group, "Only the inventory's units of this group")
        ->type_name("NAME");
}

void add_sending_options(CLI::App &app) {
    constexpr std::size_t most_parallel = 1000;
    constexpr int most_retries = 1000;
    app.add_option_function<std::string>(
           "--bind", use_own_address,
           "This machine's address to send from and to listen on, so that several gateways\n"
           "can share a machine")
        ->type_name("ADDRESS");
    app.add_flag("--udp", common.over_udp, "Send over UDP, which is not acknowledged");
    app.add_flag("--dry-run", common.is_dry_run, "Explain the message instead of sending it");
    app.add_flag("--force", common.is_forced, "Send even what decode finds a fault with");
    add_duration(app, "--timeout", common.timeout, "5s", "How long to wait for a unit");
    app.add_option("--parallel", common.parallel, "How many units are sent to at once")
        ->check(CLI::Range(std::size_t{1}, most_parallel))
        ->type_name("NUMBER")
        ->capture_default_str();
    app.add_option("--retries", common.retries,
                   "How often to try again, each time after about a second")
        ->check(CLI::Range(0, most_retries))
        ->type_name("NUMBER")
        ->capture_default_str();
    app.add_flag("--json", common.as_json, "Print a line of JSON for each unit");
    app.add_option("--failed-to", common.failed_file,
                   "Write the units that have failed to this file, for --units of the next run")
        ->type_name("FILE");
}

} // namespace

void add_common_options(CLI::App &app) {
    add_selection_options(app);
    add_sending_options(app);
    app.set_version_flag("--version", "gatewayctl " + std::to_string(protocol::version));
    const char *home = std::getenv("HOME");
    app.set_config("--config", home == nullptr ? "" : std::string(home) + defaults_file_name,
                   "A file with defaults: a line NAME=VALUE for an option");
    app.config_formatter(std::make_shared<defaults_file>(app));
    app.allow_config_extras(CLI::config_extras_mode::error);
}

void allow_empty(const CLI::Option &option) {
    may_be_empty.push_back(&option);
}

void refuse_empty_values(CLI::App &app) {
    for (CLI::Option *option : app.get_options()) {
        if (std::ranges::count(may_be_empty, option) == 0) {
            option->check([](const std::string &value) {
                return value.empty() ? std::string("the value is empty") : std::string();
            });
        }
    }
    for (CLI::App *command : app.get_subcommands({})) {
        refuse_empty_values(*command);
    }
}

// The names are those of the help text. A variable that is empty counts as not set.
void take_environment(const CLI::App &app) {
    for (const CLI::Option *option : app.get_options()) {
        const std::string name = option->get_name();
        if (option->count() > 0 && !defaulted.contains(name)) {
            asked_for.insert(name);
        }
    }
    selection_settings &units = common.units;
    const bool are_units_given =
        !units.to.empty() || !units.inventory.empty() || !units.group.empty() || is_broadcast(app);
    if (!are_units_given && !environment("GATEWAYCTL_TO").empty()) {
        units.to = {environment("GATEWAYCTL_TO")};
    }
    if (units.inventory.empty()) {
        units.inventory = environment("GATEWAYCTL_UNITS");
    }
}

bool is_asked_for(const std::string &option) {
    return asked_for.contains(option);
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
