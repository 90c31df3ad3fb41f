#include "tools/gatewayctl/channel.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/own_address.h"
#include "tools/gatewayctl/socket.h"

#include <cerrno>
#include <sys/socket.h>

void send_over_udp(const sockaddr_in &unit, const message_bytes &message) {
    const descriptor_owner sender = open_socket(SOCK_DGRAM);
    bind_to_own_address(sender.get());
    const int on = 1;
    setsockopt(sender.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const ssize_t sent =
        sendto(sender.get(), message.data(), message.size(), 0, generic(unit), sizeof unit);
    if (sent != static_cast<ssize_t>(message.size())) {
        throw run_failure("cannot send to " + to_text(unit) + ": " + reason(errno));
    }
}
