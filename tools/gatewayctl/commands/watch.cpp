#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/selection.h"
#include "tools/gatewayctl/sending.h"
#include "tools/gatewayctl/text.h"
#include "tools/gatewayctl/watch.h"

#include <map>
#include <string>
#include <utility>

namespace {

struct watch_options {
    std::string broadcast;
    std::string listen;
    double every = 0; // seconds
};

watch_options options;
watch_settings settings;

bool are_units_given() {
    const selection_settings &units = common.units;
    return !units.to.empty() || !units.inventory.empty() || !units.group.empty();
}

void take_units() {
    std::map<std::uint32_t, std::string> names;
    for (const inventory_unit &unit : select_units(common.units).units) {
        const sockaddr_in where = resolve(unit.address);
        const std::uint32_t address = ntohl(where.sin_addr.s_addr);
        const auto [other, is_new] = names.emplace(address, unit.name);
        if (!is_new) {
            throw usage_failure(other->second + " and " + unit.name + " have the same address, " +
                                host_text(address));
        }
        settings.units.push_back({address, unit.name, unit.group});
        settings.calls.push_back(where);
    }
}

void take_calls() {
    if (!common.units.to.empty() && !options.broadcast.empty()) {
        throw usage_failure("watch takes either --to for single units or --broadcast for all");
    }
    if (are_units_given()) {
        take_units();
    }
    if (!options.broadcast.empty()) {
        settings.calls = {resolve(options.broadcast)};
    } else if (settings.calls.empty()) {
        settings.calls = {resolve("255.255.255.255")};
    }
}

void check_every() {
    if (options.every < 1) {
        throw usage_failure(
            "--every takes at least 1s: a call costs each unit up to three connections");
    }
    settings.every = to_milliseconds(options.every);
}

void check_metrics_file() {
    if (!settings.metrics_file.empty() && !settings.metrics_file.ends_with(".prom")) {
        throw usage_failure("--prometheus takes a file whose name ends in .prom: the node exporter "
                            "reads no other, and " +
                            ::quoted(settings.metrics_file) + " does not");
    }
}

int run_watch() {
    refuse_dry_run("watch");
    check_every();
    check_metrics_file();
    if (!options.listen.empty()) {
        if (options.listen.find(':') == std::string::npos) {
            throw usage_failure("--listen takes ADDRESS:PORT, not " + ::quoted(options.listen));
        }
        settings.listen = resolve(options.listen);
    }
    take_calls();
    settings.as_json = common.as_json;
    watch(settings);
    return 0;
}

} // namespace

void add_watch(CLI::App &app) {
    CLI::App &command = add_command(
        app, "watch", "Call the roll again and again, and show who is there and since when",
        run_watch);
    command
        .add_option("--broadcast", options.broadcast,
                    "Call all units of a network at once (default, unless units are given: "
                    "255.255.255.255)")
        ->type_name("ADDRESS");
    add_duration(command, "--every", options.every, "60s", "How often, e.g. 30s or 5min");
    command
        .add_option("--prometheus", settings.metrics_file,
                    "Keep the metrics in this file, for the node exporter's textfile collector")
        ->type_name("FILE.prom");
    command
        .add_option("--listen", options.listen,
                    "Answer scrapes of Prometheus here, at the path /metrics")
        ->type_name("ADDRESS:PORT");
}
