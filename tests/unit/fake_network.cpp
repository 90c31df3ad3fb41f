#include "fake_calls.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace fake {

namespace {

std::string address_text(const sockaddr *address) {
    sockaddr_in sa{};
    std::memcpy(&sa, address, sizeof sa);
    return std::string(inet_ntoa(sa.sin_addr)) + ":" + std::to_string(ntohs(sa.sin_port));
}

// As the kernel does: by name and address if the request has one, else by name.
const interface_record *find_interface(const ifreq &request) {
    sockaddr_in sa{};
    std::memcpy(&sa, &request.ifr_addr, sizeof sa);
    const std::string address = inet_ntoa(sa.sin_addr);
    const interface_record *named = nullptr;
    for (const interface_record &record : state.interfaces) {
        if (record.name == request.ifr_name) {
            if (record.address == address) {
                return &record;
            }
            named = named == nullptr ? &record : named;
        }
    }
    return named;
}

void set_address(ifreq &record, const std::string &address) {
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_addr.s_addr = inet_addr(address.c_str());
    std::memcpy(&record.ifr_addr, &sa, sizeof sa);
}

} // namespace

int list_interfaces(ifconf &request) {
    const auto room = static_cast<std::size_t>(request.ifc_len) / sizeof(ifreq);
    std::size_t count = 0;
    for (const interface_record &record : state.interfaces) {
        if (count < room && !record.address.empty()) {
            ifreq &entry = request.ifc_req[count++];
            record.name.copy(entry.ifr_name, sizeof entry.ifr_name - 1);
            set_address(entry, record.address);
        }
    }
    request.ifc_len = static_cast<int>(count * sizeof(ifreq));
    return 0;
}

int interface_request(unsigned long request, ifreq &record) {
    const interface_record *found = find_interface(record);
    if (found == nullptr) {
        return failure(ENODEV);
    }
    if (request == SIOCGIFHWADDR) {
        found->hardware_address.copy(record.ifr_hwaddr.sa_data, 6);
    } else {
        set_address(record, found->address);
    }
    return 0;
}

} // namespace fake

extern "C" {
using namespace fake;

int __real_socket(int family, int type, int protocol);
int __wrap_socket(int family, int type, int protocol) {
    PASS_WHEN_STOPPED(socket, family, type, protocol)
    const std::string call = type == SOCK_STREAM ? "socket tcp" : "socket udp";
    record(call);
    return fails(call) ? failure(EMFILE) : new_descriptor({});
}

int __real_setsockopt(int fd, int level, int option, const void *value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t size) {
    PASS_WHEN_STOPPED(setsockopt, fd, level, option, value, size)
    int number = 0;
    std::memcpy(&number, value, std::min<std::size_t>(size, sizeof number));
    record("setsockopt " + std::to_string(level) + " " + std::to_string(option) + " " +
           std::to_string(number));
    return 0;
}

int __real_bind(int fd, const sockaddr *address, socklen_t size);
int __wrap_bind(int fd, const sockaddr *address, socklen_t size) {
    PASS_WHEN_STOPPED(bind, fd, address, size)
    record("bind " + std::to_string(fd) + " " + address_text(address));
    return fails("bind") ? failure(EADDRINUSE) : 0;
}

int __real_listen(int fd, int backlog);
int __wrap_listen(int fd, int backlog) {
    PASS_WHEN_STOPPED(listen, fd, backlog)
    record("listen " + std::to_string(fd) + " " + std::to_string(backlog));
    return fails("listen") ? failure(EADDRINUSE) : 0;
}

int __real_connect(int fd, const sockaddr *address, socklen_t size);
int __wrap_connect(int fd, const sockaddr *address, socklen_t size) {
    PASS_WHEN_STOPPED(connect, fd, address, size)
    const std::string call = "connect " + address_text(address);
    record(call);
    const std::string number = "connect#" + std::to_string(state.calls_of("connect").size());
    const bool is_numbered =
        std::find(state.failing.begin(), state.failing.end(), number) != state.failing.end();
    return fails(call) || is_numbered || fd < 0 ? failure(ECONNREFUSED) : 0;
}

int __real_accept(int fd, sockaddr *address, socklen_t *size);
int __wrap_accept(int fd, sockaddr *address, socklen_t *size) {
    PASS_WHEN_STOPPED(accept, fd, address, size)
    const auto accepted = state.calls_of("accept").size();
    record("accept " + std::to_string(fd) + " " + std::to_string(*size));
    if (fails("accept") || accepted >= state.connections.size()) {
        return failure(ECONNABORTED);
    }
    const connection &peer = state.connections[accepted];
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_addr.s_addr = inet_addr(peer.peer.c_str());
    std::memcpy(address, &sa, sizeof sa);
    return new_descriptor({"", 0, false, &peer});
}

ssize_t __real_recvfrom(int fd, void *buffer, std::size_t size, int flags, sockaddr *address,
                        socklen_t *length);
ssize_t __wrap_recvfrom(int fd, void *buffer, std::size_t size, int flags, sockaddr *address,
                        socklen_t *length) {
    PASS_WHEN_STOPPED(recvfrom, fd, buffer, size, flags, address, length)
    const auto received = state.calls_of("recvfrom").size();
    record("recvfrom " + std::to_string(fd) + " " + std::to_string(size) + " " +
           std::to_string(flags) + " " + std::to_string(*length));
    if (fails("recvfrom") || received >= state.datagrams.size()) {
        return failure(EAGAIN);
    }
    const datagram &arrived = state.datagrams[received];
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(40000);
    sa.sin_addr.s_addr = inet_addr(arrived.sender.c_str());
    std::memcpy(address, &sa, sizeof sa);
    return static_cast<ssize_t>(arrived.data.copy(static_cast<char *>(buffer), size));
}

int __real_shutdown(int fd, int how);
int __wrap_shutdown(int fd, int how) {
    PASS_WHEN_STOPPED(shutdown, fd, how)
    record("shutdown " + std::to_string(fd) + " " + std::to_string(how));
    return 0;
}
}
