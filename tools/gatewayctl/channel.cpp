#include "tools/gatewayctl/channel.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/descriptor_owner.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

using clock_type = std::chrono::steady_clock;

std::string reason(int error) {
    return std::strerror(error); // NOLINT(concurrency-mt-unsafe): there is one thread
}

std::uint16_t parse_port(const std::string &text) {
    unsigned port = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port < 1 || port > 0xffff) {
        throw usage_failure(quoted(text) + " is not a port");
    }
    return static_cast<std::uint16_t>(port);
}

sockaddr_in find_host(const std::string &host) {
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(host.c_str(), nullptr, &wanted, &found);
    if (error != 0) {
        throw run_failure("there is no host " + quoted(host) + ": " + gai_strerror(error));
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    return address;
}

descriptor_owner open_socket(int type) {
    descriptor_owner socket_fd(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    if (socket_fd.get() < 0) {
        throw run_failure("no socket can be had: " + reason(errno));
    }
    return socket_fd;
}

const sockaddr *generic(const sockaddr_in &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

// Whether the event came before the end.
bool wait_for(int fd, short event, clock_type::time_point end) {
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - clock_type::now());
        pollfd waiting{fd, event, 0};
        const int count =
            poll(&waiting, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        if (count >= 0 || errno != EINTR) {
            return count > 0;
        }
    }
}

int pending_error(int fd) {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

[[noreturn]] void fail_to_connect(const sockaddr_in &unit, int error) {
    if (error == ECONNREFUSED) {
        throw run_failure(to_text(unit) +
                          " refuses connections: that machine is up, the service is not");
    }
    throw run_failure(to_text(unit) + " cannot be reached: " + reason(error));
}

void connect_to(int fd, const sockaddr_in &unit, clock_type::time_point end) {
    if (connect(fd, generic(unit), sizeof unit) == 0) {
        return;
    }
    if (errno != EINPROGRESS) {
        fail_to_connect(unit, errno);
    }
    if (!wait_for(fd, POLLOUT, end)) {
        throw run_failure(to_text(unit) + " does not answer");
    }
    if (const int error = pending_error(fd); error != 0) {
        fail_to_connect(unit, error);
    }
}

// The unit closes without a word, or resets where it has not read everything.
void wait_until_taken(int fd, const sockaddr_in &unit, clock_type::time_point end) {
    char unused = 0;
    while (wait_for(fd, POLLIN, end)) {
        const ssize_t count = recv(fd, &unused, 1, 0);
        if (count == 0 || (count < 0 && errno == ECONNRESET)) {
            return;
        }
        if (count < 0 && errno != EINTR && errno != EAGAIN) {
            throw run_failure(to_text(unit) + " has broken the connection: " + reason(errno));
        }
    }
    throw run_failure("the message is on its way, but " + to_text(unit) +
                      " has not taken it yet: the unit is busy, or something else listens there");
}

} // namespace

sockaddr_in resolve(const std::string &host_and_port) {
    const std::size_t colon = host_and_port.rfind(':');
    const std::string host = host_and_port.substr(0, colon);
    const std::uint16_t port = colon == std::string::npos
                                   ? protocol::command_port
                                   : parse_port(host_and_port.substr(colon + 1));
    if (host.empty()) {
        throw usage_failure(quoted(host_and_port) + " names no host");
    }
    sockaddr_in address = find_host(host);
    address.sin_port = htons(port);
    return address;
}

std::string host_text(const sockaddr_in &address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text;
}

std::string to_text(const sockaddr_in &address) {
    return host_text(address) + ":" + std::to_string(ntohs(address.sin_port));
}

void send_over_tcp(const sockaddr_in &unit, const message_bytes &message,
                   std::chrono::milliseconds limit) {
    const auto end = clock_type::now() + limit;
    const descriptor_owner connection = open_socket(SOCK_STREAM | SOCK_NONBLOCK);
    connect_to(connection.get(), unit, end);
    // An empty socket's buffer takes any message whole.
    const ssize_t sent = send(connection.get(), message.data(), message.size(), MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(message.size())) {
        throw run_failure("the message could not be sent whole: " + reason(errno));
    }
    wait_until_taken(connection.get(), unit, end);
}

void send_over_udp(const sockaddr_in &unit, const message_bytes &message) {
    const descriptor_owner sender = open_socket(SOCK_DGRAM);
    const int on = 1;
    setsockopt(sender.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const ssize_t sent =
        sendto(sender.get(), message.data(), message.size(), 0, generic(unit), sizeof unit);
    if (sent != static_cast<ssize_t>(message.size())) {
        throw run_failure("nothing could be sent to " + to_text(unit) + ": " + reason(errno));
    }
}
