// Says what is wrong with a unit: looks at each link of the chain from the gateway to the television,
// and changes nothing.

#include "hdtv/config_store.h"
#include "hdtv/protocol.h"
#include "tools/doctor/configuration.h"
#include "tools/doctor/report.h"
#include "tools/doctor/sections.h"
#include "tools/doctor/stopped_service.h"
#include "tools/doctor/watch.h"
#include "tools/gatewayctl/text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int failure_status = 1;
constexpr int usage_status = 2;

constexpr const char *about =
    "Says what is wrong with this unit: looks at each link of the chain from the gateway to the\n"
    "television, and prints a line for each: ok, FAIL, or cannot tell. Changes nothing.";

constexpr const char *notes =
    "Run it as root: others see less. It sends nothing on the network but to 127.0.0.1, and never\n"
    "opens the watchdog. On the television's bus it asks for the power status and for the active\n"
    "source; with --stop-service it joins the bus first, under the service's name.\n"
    "\n"
    "Examples:\n"
    "  hdtv-doctor\n"
    "  hdtv-doctor --watch                while you move cables\n"
    "  hdtv-doctor --stop-service         asks the television itself\n"
    "  hdtv-doctor --json | grep '\"fail\"'\n"
    "\n"
    "Exit status: 0 no FAIL; 1 a FAIL, or the service could not be stopped or started again;\n"
    "2 invalid request; 128 and the signal's number when interrupted, except with --watch.";

struct settings {
    bool as_json = false;
    bool is_watching = false;
    bool is_stopping_service = false;
};

volatile std::sig_atomic_t ending_signal = 0;

void note_signal(int number) {
    ending_signal = number;
}

// Waits end with these. Whoever reads the output may go away at any time.
void handle_signals() {
    struct sigaction noting {};
    noting.sa_handler = note_signal;
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        sigaction(number, &noting, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
}

bool is_set(const char *variable) {
    const char *value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): there is one thread
    return value != nullptr && *value != '\0';
}

report_style style_for(const settings &chosen) {
    return {chosen.as_json, !chosen.as_json && isatty(STDOUT_FILENO) == 1 && !is_set("NO_COLOR")};
}

// With a gap for the television, which may be asked in the service's place.
std::vector<section> look_at_the_rest(const snapshot &taken) {
    return {{"service", look_at_service(taken)},
            {"television", {}},
            {"browser", look_at_browser(taken)},
            {"network", look_at_network(taken)},
            {"configuration", look_at_configuration(config_file)},
            {"machine", look_at_machine(taken)}};
}

std::vector<section> with_television(std::vector<section> sections, findings television) {
    sections[1].found = std::move(television);
    return sections;
}

std::vector<section> look() {
    const snapshot taken = take_snapshot();
    return with_television(look_at_the_rest(taken), look_beside_service(taken.service()));
}

void complain(const std::string &words) {
    std::fprintf(stderr, "hdtv-doctor: %s\n", printable(words).c_str());
}

int status_of(const std::vector<section> &sections) {
    return has_failure(sections) ? failure_status : 0;
}

// The status, if there is no other reason for one.
int print(const std::vector<section> &sections, const settings &chosen, int status = 0) {
    if (ending_signal != 0) {
        return 128 + ending_signal;
    }
    std::fputs(to_text(sections, style_for(chosen)).c_str(), stdout);
    return std::max(status_of(sections), status);
}

// A signal that came during the stop ends it.
findings ask_in_place_of(const process &service) {
    stopped_service stopped(service);
    findings found = ending_signal == 0 ? look_through_port() : findings();
    if (!stopped.start_again()) {
        found.push_back(has_failed("service's start", "it has not been started again",
                                   "start it: systemctl start hdtv, or /etc/init.d/S90hdtv start",
                                   chapter::start));
    }
    return found;
}

// Asks the television in the service's place, after everything else has been looked at, which is told
// in any case.
int report_in_services_place(const settings &chosen) {
    const snapshot taken = take_snapshot();
    const std::vector<section> rest = look_at_the_rest(taken);
    try {
        return print(with_television(rest, taken.service() == nullptr
                                               ? look_through_port()
                                               : ask_in_place_of(*taken.service())),
                     chosen);
    } catch (const stop_failure &failure) {
        if (ending_signal == 0) {
            complain(failure.what());
        }
        return print(with_television(rest, {cannot_tell("television", failure.what())}), chosen,
                     failure_status);
    }
}

int run(const settings &chosen) {
    handle_signals();
    if (chosen.is_stopping_service) {
        if (is_root()) {
            return report_in_services_place(chosen);
        }
        complain("--stop-service needs root");
        return failure_status;
    }
    if (!chosen.is_watching) {
        return print(look(), chosen);
    }
    constexpr std::chrono::milliseconds pause(2000);
    return status_of(watch([] { return look(); }, style_for(chosen), pause, ending_signal));
}

} // namespace

int main(int argc, char **argv) {
    try {
        settings chosen;
        CLI::App app(about, "hdtv-doctor");
        app.footer(notes);
        app.add_flag("--json", chosen.as_json, "Print a line of JSON for each link");
        CLI::Option *watching = app.add_flag(
            "--watch", chosen.is_watching,
            "Look every two seconds until Ctrl-C; print what changes, or on a terminal all of it");
        app.add_flag("--stop-service", chosen.is_stopping_service,
                     "Stop the service, ask the television in its place, and start it again")
            ->excludes(watching);
        app.set_version_flag("--version", "hdtv-doctor " + std::to_string(protocol::version));
        try {
            app.parse(argc, argv);
        } catch (const CLI::Success &help_or_version) {
            return app.exit(help_or_version);
        } catch (const CLI::ParseError &error) {
            complain(error.what());
            std::fputs("See hdtv-doctor --help.\n", stderr);
            return usage_status;
        }
        return run(chosen);
    } catch (const std::exception &failure) {
        complain(failure.what());
        return failure_status;
    }
}
