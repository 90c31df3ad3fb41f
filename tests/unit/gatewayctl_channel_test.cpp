// Sending a message to a unit, which is a socket on this machine's loopback.

#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/failure.h"

#include "gatewayctl_test.h"
#include "loopback_unit.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace {

std::string failure_of(const std::function<void()> &send) {
    try {
        send();
    } catch (const run_failure &failure) {
        return failure.what();
    }
    return "";
}

// What one read returns.
bytes read_once(const descriptor_owner &from) {
    bytes buffer(70000);
    const ssize_t size = recv(from.get(), buffer.data(), buffer.size(), 0);
    buffer.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return buffer;
}

TEST(udp_message, is_one_datagram) {
    const loopback_unit unit(SOCK_DGRAM);
    send_over_udp(unit.address, {1, 2, 3});
    send_over_udp(unit.address, {4});
    EXPECT_EQ(read_once(unit.socket_fd), bytes({1, 2, 3}));
    EXPECT_EQ(read_once(unit.socket_fd), bytes({4}));
}

TEST(udp_message, may_be_broadcast) {
    const loopback_unit unit(SOCK_DGRAM);
    sockaddr_in everyone = resolve("127.255.255.255");
    everyone.sin_port = unit.address.sin_port;
    EXPECT_EQ(failure_of([&] { send_over_udp(everyone, {1}); }), "");
}

TEST(udp_message, that_no_datagram_holds_is_refused) {
    const loopback_unit unit(SOCK_DGRAM);
    EXPECT_EQ(failure_of([&] { send_over_udp(unit.address, bytes(65508)); }),
              "cannot send to " + to_text(unit.address) + ": Message too long");
    EXPECT_EQ(failure_of([&] { send_over_udp(unit.address, bytes(65507)); }), "");
}

} // namespace
