#pragma once

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/own_address.h"
#include "tools/gatewayctl/socket.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

/// A part of the loopback network that no other process uses: the gateway, which is this process, has
/// its first address, and the units have others, so that all of them can use the ports that they have
/// on a real network.
class own_network {
  public:
    own_network() {
        use_own_address(address(1));
    }
    own_network(const own_network &) = delete;
    own_network &operator=(const own_network &) = delete;
    ~own_network() {
        use_own_address("0.0.0.0");
    }

    static std::string address(int number) {
        const int id = getpid();
        return "127." + std::to_string(64 + (id >> 8) % 128) + "." + std::to_string(id % 256) +
               "." + std::to_string(number);
    }
};

/// A unit, with its command port.
struct network_unit {
    std::string host;
    descriptor_owner commands;

    explicit network_unit(int number, int type = SOCK_STREAM)
        : host(own_network::address(number)), commands(open_socket(type)) {
        const int on = 1;
        setsockopt(commands.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        const sockaddr_in address = resolve(host);
        EXPECT_EQ(bind(commands.get(), generic(address), sizeof address), 0);
        if (type == SOCK_STREAM) {
            EXPECT_EQ(listen(commands.get(), 16), 0);
        }
    }

    /// A connection to the gateway's record port.
    descriptor_owner connect_to_gateway() const {
        descriptor_owner connection = open_socket(SOCK_STREAM);
        sockaddr_in from = resolve(host);
        from.sin_port = 0;
        EXPECT_EQ(bind(connection.get(), generic(from), sizeof from), 0);
        const sockaddr_in gateway = resolve(own_network::address(1) + ":5000");
        EXPECT_EQ(connect(connection.get(), generic(gateway), sizeof gateway), 0);
        return connection;
    }

    void send_record(const std::vector<std::uint8_t> &record) const {
        const descriptor_owner connection = connect_to_gateway();
        EXPECT_EQ(send(connection.get(), record.data(), record.size(), 0),
                  static_cast<ssize_t>(record.size()));
    }

    /// What one read of the next connection returns.
    std::string take() const {
        const descriptor_owner connection(accept(commands.get(), nullptr, nullptr));
        char buffer[4096];
        const ssize_t size = recv(connection.get(), buffer, sizeof buffer, 0);
        return {buffer, static_cast<std::size_t>(size > 0 ? size : 0)};
    }
};
