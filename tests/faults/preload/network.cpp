// The service's calls that act on sockets, and those of its event loop.

#include "descriptor_names.h"
#include "ledger.h"
#include "real.h"
#include "site_name.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace {

std::string_view kind_of(int domain, int type) {
    if (domain == AF_UNIX) {
        return "CEC bus";
    }
    return type == SOCK_STREAM ? "TCP" : "UDP";
}

// "TCP" becomes "TCP 5000".
site_name with_port(std::string_view kind, const sockaddr *address) {
    site_name name(kind.substr(0, kind.find(' ')));
    if (address->sa_family != AF_INET) {
        return site_name("CEC bus");
    }
    char port[8];
    std::snprintf(port, sizeof port, "%d",
                  ntohs(reinterpret_cast<const sockaddr_in *>(address)->sin_port));
    name.append(port);
    return name;
}

} // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    if (must_fail("socket", kind_of(domain, type))) {
        return -1;
    }
    const int fd = real<int(int, int, int)>("socket")(domain, type, protocol);
    name_descriptor(fd, kind_of(domain, type));
    return fd;
}

int bind(int fd, const sockaddr *address, socklen_t size) noexcept {
    const site_name name = with_port(name_of(fd), address);
    if (must_fail("bind", name.text())) {
        return -1;
    }
    name_descriptor(fd, name.text());
    return real<int(int, const sockaddr *, socklen_t)>("bind")(fd, address, size);
}

int connect(int fd, const sockaddr *address, socklen_t size) {
    const site_name name = with_port(name_of(fd), address);
    name_descriptor(fd, name.text());
    if (must_fail("connect", name.text())) {
        return -1;
    }
    return real<int(int, const sockaddr *, socklen_t)>("connect")(fd, address, size);
}

int listen(int fd, int backlog) noexcept {
    return must_fail("listen", name_of(fd)) ? -1 : real<int(int, int)>("listen")(fd, backlog);
}

int accept(int fd, sockaddr *address, socklen_t *size) {
    if (must_fail("accept", name_of(fd))) {
        return -1;
    }
    const int accepted = real<int(int, sockaddr *, socklen_t *)>("accept")(fd, address, size);
    name_descriptor(accepted, "command connection");
    return accepted;
}

int shutdown(int fd, int how) noexcept {
    return must_fail("shutdown", name_of(fd)) ? -1 : real<int(int, int)>("shutdown")(fd, how);
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t size) noexcept {
    if (must_fail("setsockopt", option == TCP_SYNCNT ? "TCP_SYNCNT" : "another option")) {
        return -1;
    }
    return real<int(int, int, int, const void *, socklen_t)>("setsockopt")(fd, level, option, value,
                                                                           size);
}

ssize_t send(int fd, const void *buffer, std::size_t size, int flags) {
    if (must_fail("send", name_of(fd))) {
        return -1;
    }
    return real<ssize_t(int, const void *, std::size_t, int)>("send")(fd, buffer, size, flags);
}

ssize_t recv(int fd, void *buffer, std::size_t size, int flags) {
    const int fault = fault_of("recv", name_of(fd));
    if (fault > 0) {
        errno = fault;
        return -1;
    }
    // A stream may deliver as little as one byte at a time.
    const std::size_t wanted = fault == short_transfer ? 1 : size;
    return real<ssize_t(int, void *, std::size_t, int)>("recv")(fd, buffer, wanted, flags);
}

ssize_t recvfrom(int fd, void *buffer, std::size_t size, int flags, sockaddr *address,
                 socklen_t *address_size) {
    if (must_fail("recvfrom", name_of(fd))) {
        return -1;
    }
    return real<ssize_t(int, void *, std::size_t, int, sockaddr *, socklen_t *)>("recvfrom")(
        fd, buffer, size, flags, address, address_size);
}

// By the event library.

int epoll_create1(int flags) noexcept {
    return must_fail("epoll_create1") ? -1 : real<int(int)>("epoll_create1")(flags);
}

int epoll_ctl(int epoll_fd, int operation, int fd, epoll_event *event) noexcept {
    if (must_fail("epoll_ctl", name_of(fd))) {
        return -1;
    }
    return real<int(int, int, int, epoll_event *)>("epoll_ctl")(epoll_fd, operation, fd, event);
}
}
