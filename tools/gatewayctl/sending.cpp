#include "tools/gatewayctl/sending.h"

#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/delivery_report.h"
#include "tools/gatewayctl/describe.h"
#include "tools/gatewayctl/ending.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/inventory_file.h"
#include "tools/gatewayctl/output.h"
#include "tools/gatewayctl/text.h"

#include <csignal>
#include <iostream>
#include <optional>
#include <string>
#include <unistd.h>

namespace {

// Only what may be sent: even a message that is too long can be explained.
void check_size(const message_bytes &message) {
    if (message.empty()) {
        throw usage_failure("the message is empty");
    }
    if (message.size() > static_cast<std::size_t>(message_limit(common.via()))) {
        throw usage_failure("the message has " + bytes_text(message.size()) +
                            "; it may have at most " + std::to_string(message_limit(common.via())));
    }
}

int status_of(const description &described) {
    return described.faults.empty() ? 0 : 1;
}

int explain(const description &described, const message_bytes &message) {
    std::cout << to_text(described, message);
    return written_status(status_of(described));
}

// Whether it may be sent.
bool is_accepted(const description &described) {
    for (const std::string &fault : described.faults) {
        std::cerr << "gatewayctl: warning: " << fault << "\n";
    }
    if (described.faults.empty() || common.is_forced) {
        return true;
    }
    std::cerr << "gatewayctl: nothing was sent; --force sends it all the same\n";
    return false;
}

int deliver_to(const selection &selected, const message_fn &make, std::size_t size) {
    std::optional<inventory_file> failed_file;
    if (!common.failed_file.empty()) {
        failed_file.emplace(common.failed_file);
    }
    end_by_signals(); // in order to take back what is not read, and to say how far it has come
    std::signal(SIGPIPE, SIG_IGN); // whether anybody reads the output or not, all units are sent to
    delivery_settings settings;
    settings.via = common.via();
    settings.timeout = to_milliseconds(common.timeout);
    settings.parallel = common.parallel;
    settings.retries = common.retries;
    const report_form form = common.as_json      ? report_form::json
                             : selected.is_fleet ? report_form::table
                                                 : report_form::one_unit;
    delivery_report report(form, selected.units, settings.via, size, isatty(STDERR_FILENO) == 1);
    deliver(selected.units, make, settings,
            [&report](const delivery_result &result) { report.add(result); });
    report.finish();
    if (failed_file) {
        failed_file->write(report.failed(), "Units that have not taken a message: " +
                                                std::to_string(report.failed().size()));
    }
    return written_status(report.failed().empty() ? 0 : 1);
}

} // namespace

int send_message(const message_fn &make) {
    const message_bytes message = make();
    const description described = describe_message(message, common.via());
    if (common.is_dry_run) {
        return explain(described, message);
    }
    check_size(message);
    const selection selected = select_units(common.units);
    return is_accepted(described) ? deliver_to(selected, make, message.size()) : 1;
}

int send_message(const message_bytes &message) {
    return send_message(message_fn([&message] { return message; }));
}

void require_tcp(const char *command) {
    if (common.over_udp && !common.is_dry_run) {
        throw usage_failure(std::string(command) + " works over TCP only: omit --udp");
    }
}

void refuse_dry_run(const char *command) {
    if (common.is_dry_run) {
        throw usage_failure(std::string(command) +
                            " shows what units answer: there is nothing to show with --dry-run");
    }
}
