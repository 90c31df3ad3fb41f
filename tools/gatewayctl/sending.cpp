#include "tools/gatewayctl/sending.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/describe.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/text.h"

#include <cstdio>
#include <iostream>
#include <string>

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
