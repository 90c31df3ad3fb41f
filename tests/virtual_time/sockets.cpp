#include "calls.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace virtual_time {

namespace {

constexpr char own_hardware[] = "\x02\x00\x0A\x57\x21\x32";
constexpr std::size_t backlog = 1;
constexpr std::size_t most_datagrams = 200;
constexpr std::int64_t accept_retry = 100; // ms, of a loop that cannot accept

sockaddr_in make_address(const std::string &dotted, int port) {
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(static_cast<std::uint16_t>(port));
    sa.sin_addr.s_addr = inet_addr(dotted.c_str());
    return sa;
}

std::string address_text(const sockaddr *address) {
    sockaddr_in sa{};
    std::memcpy(&sa, address, sizeof sa);
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &sa.sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(ntohs(sa.sin_port));
}

std::string unit_address() {
    return world.has_interface ? world.address : "";
}

answer_mode answer_of(const std::string &to) {
    if (unit_address().empty() || !world.is_cable_in) {
        return answer_mode::is_unreachable;
    }
    if (to == "10.87.33.1:3128") {
        return world.proxy;
    }
    for (int number = 0; number < 3; ++number) {
        if (to == gateway_address(number) + ":5000") {
            return world.gateways[number];
        }
    }
    return answer_mode::refuses;
}

// Blocks as the kernel does.
int connecting_error(const std::string &to) {
    switch (answer_of(to)) {
    case answer_mode::accepts:
        return 0;
    case answer_mode::refuses:
        return ECONNREFUSED;
    case answer_mode::is_unreachable:
        world.advance(world.now + 3 * second);
        return EHOSTUNREACH;
    default:
        world.advance(world.now + (to.ends_with(":3128") ? 7 : 127) * second);
        return ETIMEDOUT;
    }
}

int list_interfaces(ifconf &request) {
    const std::string own = unit_address();
    const bool fails = world.is_listing_failing;
    world.acts.add(act::listed, own, 0, fails ? -1 : 0);
    if (fails) {
        return failure(EIO);
    }
    ifreq *entry = request.ifc_req;
    const sockaddr_in loopback = make_address("127.0.0.1", 0);
    std::strcpy(entry->ifr_name, "lo");
    std::memcpy(&entry->ifr_addr, &loopback, sizeof loopback);
    if (!own.empty()) {
        ++entry;
        const sockaddr_in sa = make_address(own, 0);
        std::strcpy(entry->ifr_name, "eth0");
        std::memcpy(&entry->ifr_addr, &sa, sizeof sa);
    }
    request.ifc_len =
        static_cast<int>(static_cast<std::size_t>(entry + 1 - request.ifc_req) * sizeof(ifreq));
    return 0;
}

int read_hardware_address(bool is_open, ifreq &request) {
    if (!is_open || !world.has_interface) {
        world.acts.add(act::hardware, std::string(6, '\0'), 0, -1);
        return failure(ENODEV);
    }
    std::memcpy(request.ifr_hwaddr.sa_data, own_hardware, 6);
    world.acts.add(act::hardware, {own_hardware, 6});
    return 0;
}

void retry(happening event) {
    constexpr int most_attempts = 6;
    if (event.number / 16 < most_attempts) {
        const std::int64_t wait = second << (event.number / 16);
        event.number += 16;
        event.at = world.now + wait;
        world.consequences.push(event);
    }
}

} // namespace

// A connection that finds the queue full tries again, as its kernel does; the number of attempts is
// kept above the gateway's number.
void deliver(const happening &event) {
    if (world.is_off || !world.is_cable_in || unit_address().empty()) {
        return;
    }
    const std::string peer = gateway_address(event.number % 16);
    if (event.what == kind::udp_message) {
        if (world.datagrams.size() < most_datagrams) {
            world.datagrams.push_back({peer, event.text});
        }
        return;
    }
    if (world.connections.size() > backlog) {
        return retry(event);
    }
    world.connections.push_back({peer, event.text, event.more, event.what == kind::tcp_failure, 0});
}

ssize_t receive(descriptor &socket, void *buffer, std::size_t size) {
    const connection peer = socket.peer;
    socket.peer = {};
    if (peer.delay > 0) {
        world.advance(world.now + peer.delay);
    }
    if (peer.fails) {
        world.acts.add(act::received, "", 0, -1);
        return failure(ECONNRESET);
    }
    const std::size_t count = peer.data.copy(static_cast<char *>(buffer), size);
    world.acts.add(act::received, {static_cast<char *>(buffer), count}, 0,
                   static_cast<long>(count));
    return static_cast<ssize_t>(count);
}

int interface_request(int fd, unsigned long request, void *argument) {
    const bool is_open = find_descriptor(fd) != nullptr;
    if (request == SIOCGIFHWADDR) {
        return read_hardware_address(is_open, *static_cast<ifreq *>(argument));
    }
    if (!is_open) {
        return failure(EBADF);
    }
    // The list already contains the addresses that SIOCGIFADDR asks for.
    return request == SIOCGIFCONF ? list_interfaces(*static_cast<ifconf *>(argument)) : 0;
}

} // namespace virtual_time

extern "C" {
using namespace virtual_time;

int __real_socket(int family, int type, int protocol);
int __wrap_socket(int family, int type, int protocol) {
    PASS_WHEN_OFF(socket, family, type, protocol)
    const int fd = new_descriptor(descriptor_kind::socket);
    world.acts.add(act::socket, type == SOCK_STREAM ? "tcp" : "udp", 0, fd);
    return fd;
}

int __real_setsockopt(int fd, int level, int option, const void *value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t size) {
    PASS_WHEN_OFF(setsockopt, fd, level, option, value, size)
    return 0;
}

int __real_bind(int fd, const sockaddr *address, socklen_t size);
int __wrap_bind(int fd, const sockaddr *address, socklen_t size) {
    PASS_WHEN_OFF(bind, fd, address, size)
    world.acts.add(act::bound, address_text(address));
    return 0;
}

int __real_listen(int fd, int length);
int __wrap_listen(int fd, int length) {
    PASS_WHEN_OFF(listen, fd, length)
    return 0;
}

int __real_connect(int fd, const sockaddr *address, socklen_t size);
int __wrap_connect(int fd, const sockaddr *address, socklen_t size) {
    PASS_WHEN_OFF(connect, fd, address, size)
    const std::string to = address_text(address);
    const int error = fd < 0 ? EBADF : connecting_error(to);
    world.acts.add(act::connected, to, 0, error == 0 ? 0 : -1);
    return error == 0 ? 0 : failure(error);
}

int __real_accept(int fd, sockaddr *address, socklen_t *size);
int __wrap_accept(int fd, sockaddr *address, socklen_t *size) {
    PASS_WHEN_OFF(accept, fd, address, size)
    const int cfd = new_descriptor(descriptor_kind::accepted);
    const connection peer = world.connections.front();
    world.acts.add(act::accepted, peer.peer, 0, cfd);
    if (cfd < 0) {
        world.advance(world.now + accept_retry);
        return failure(EMFILE);
    }
    world.connections.pop_front();
    find_descriptor(cfd)->peer = peer;
    const sockaddr_in sa = make_address(peer.peer, 40000);
    std::memcpy(address, &sa, sizeof sa);
    *size = sizeof sa;
    ++world.counts.messages;
    return cfd;
}

ssize_t __real_recvfrom(int fd, void *buffer, std::size_t size, int flags, sockaddr *address,
                        socklen_t *length);
ssize_t __wrap_recvfrom(int fd, void *buffer, std::size_t size, int flags, sockaddr *address,
                        socklen_t *length) {
    PASS_WHEN_OFF(recvfrom, fd, buffer, size, flags, address, length)
    const connection datagram = world.datagrams.front();
    world.datagrams.pop_front();
    const sockaddr_in sa = make_address(datagram.peer, 40000);
    std::memcpy(address, &sa, sizeof sa);
    *length = sizeof sa;
    const std::size_t count = datagram.data.copy(static_cast<char *>(buffer), size);
    world.acts.add(act::from, datagram.peer);
    world.acts.add(act::received, {static_cast<char *>(buffer), count}, 0,
                   static_cast<long>(count));
    ++world.counts.messages;
    return static_cast<ssize_t>(count);
}

int __real_shutdown(int fd, int how);
int __wrap_shutdown(int fd, int how) {
    PASS_WHEN_OFF(shutdown, fd, how)
    return 0;
}
}
