// Sending a message to a unit, which is a socket on this machine's loopback.

#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/failure.h"

#include "gatewayctl_test.h"
#include "loopback_unit.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

constexpr std::chrono::seconds long_time(60);
constexpr std::chrono::milliseconds short_time(20);

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

TEST(tcp_message, arrives_whole_and_is_over_when_the_unit_has_closed) {
    const loopback_unit unit;
    unit.listen();
    bytes message(4095);
    for (std::size_t i = 0; i < message.size(); ++i) {
        message[i] = static_cast<std::uint8_t>(i % 251);
    }
    bytes taken;
    std::thread service([&] {
        const descriptor_owner connection = unit.accept();
        taken = read_once(connection);
    });
    send_over_tcp(unit.address, message, long_time);
    service.join();
    EXPECT_EQ(taken, message);
}

TEST(tcp_message, that_the_unit_does_not_read_fails_in_time) {
    const loopback_unit unit;
    unit.listen();
    EXPECT_EQ(failure_of([&] { send_over_tcp(unit.address, {1}, short_time); }),
              "the message was sent, but " + to_text(unit.address) +
                  " has not read it yet: the unit is busy, or something else is listening there");
}

TEST(tcp_message, for_a_unit_without_a_service_fails_at_once) {
    const loopback_unit unit;
    EXPECT_EQ(failure_of([&] { send_over_tcp(unit.address, {1}, long_time); }),
              "cannot connect to " + to_text(unit.address) +
                  ": Connection refused (the machine is up, but the service is not running)");
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
