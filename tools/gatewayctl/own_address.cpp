#include "tools/gatewayctl/own_address.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/socket.h"
#include "tools/gatewayctl/text.h"

#include <cerrno>
#include <sys/socket.h>

namespace {

sockaddr_in any_address() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    return address;
}

sockaddr_in own = any_address();

} // namespace

void use_own_address(const std::string &host) {
    if (host.find(':') != std::string::npos) {
        throw usage_failure(quoted(host) +
                            " contains a port; an address of this machine is wanted");
    }
    own = resolve(host);
    own.sin_port = 0;
}

const sockaddr_in &own_address() {
    return own;
}

void bind_to_own_address(int fd) {
    if (own.sin_addr.s_addr == htonl(INADDR_ANY)) {
        return;
    }
    const int on = 1; // the port is chosen later, when it is known which ones are free
    setsockopt(fd, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
    if (bind(fd, generic(own), sizeof own) != 0) {
        throw run_failure("cannot send from " + host_text(own) + ": " + reason(errno));
    }
}
