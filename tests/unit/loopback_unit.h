#pragma once

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/socket.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

/// A socket with a port of its own, listening or not yet.
struct loopback_unit {
    descriptor_owner socket_fd;
    sockaddr_in address = resolve("127.0.0.1");

    explicit loopback_unit(int type = SOCK_STREAM) : socket_fd(open_socket(type)) {
        address.sin_port = 0;
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(socket_fd.get(), generic(address), size), 0);
        EXPECT_EQ(getsockname(socket_fd.get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
    }
    void listen() const {
        EXPECT_EQ(::listen(socket_fd.get(), 1), 0);
    }
    descriptor_owner accept() const {
        return descriptor_owner(::accept(socket_fd.get(), nullptr, nullptr));
    }
};
