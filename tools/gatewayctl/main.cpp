// A command-line gateway: sends messages to units, calls the roll, answers units, and explains
// messages.

#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/commands/commands.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/text.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

namespace {

constexpr int usage_status = 2;

constexpr const char *about =
    "Sends messages to a station display unit, calls the roll of all units, answers them like a\n"
    "gateway, and explains messages.";

constexpr const char *examples =
    "Examples:\n"
    "  gatewayctl roll-call --broadcast 10.87.33.255\n"
    "  gatewayctl watch --units units\n"
    "  gatewayctl --to 10.87.33.50 detail-alert --text 'STRUCTURE FIRE' --unit E1:2 --turnout 120\n"
    "  gatewayctl --to 10.87.33.50 map http://10.87.33.20/map.png\n"
    "  gatewayctl --to 10.87.33.50 end-alert\n"
    "  gatewayctl --to 10.87.33.50 page --framed http://10.87.33.20/news\n"
    "  gatewayctl --units units --group north --retries 2 --failed-to failed end-alert\n"
    "  gatewayctl --dry-run display-alert --text DRILL\n"
    "  gatewayctl decode 31 01\n"
    "\n"
    "Exit status: 0 done; 1 failed for at least one unit, or decode found a fault; 2 invalid\n"
    "request.";

// The text may quote the command line, which a script may have taken from an untrusted source.
void complain(const char *words) {
    std::fprintf(stderr, "gatewayctl: %s\n", printable(words).c_str());
}

int run(int argc, char **argv) {
    CLI::App app(about, "gatewayctl");
    app.footer("gatewayctl --help lists the options common to all commands.");
    app.require_subcommand(0, 1);
    add_common_options(app);
    add_commands(app);
    refuse_empty_values(app);
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
    take_environment(app);
    if (!chosen_action()) {
        throw usage_failure("no command given: see gatewayctl --help for a list");
    }
    return chosen_action()();
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
