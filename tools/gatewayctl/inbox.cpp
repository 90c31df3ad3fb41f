#include "tools/gatewayctl/inbox.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/socket.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <string>
#include <sys/socket.h>
#include <utility>

namespace {

// A whole fleet answers a roll call at once: what the kernel cannot hold is tried again a second later.
constexpr int backlog = SOMAXCONN;
constexpr std::size_t most_accepted =
    16; // at once: so many of one unit's records are kept at least
constexpr std::size_t most_arrivals =
    256; // beyond that the oldest is dropped, so that silent peers do no harm
constexpr std::size_t most_bytes = 64; // more than in any record
constexpr std::chrono::seconds longest_arrival(5);

[[noreturn]] void fail_to_listen(int error) {
    const std::string port = "port " + std::to_string(protocol::record_port);
    if (error == EADDRINUSE) {
        throw run_failure(port + " is in use: another gateway is running on this machine");
    }
    throw run_failure("cannot listen on " + port + ": " + reason(error));
}

} // namespace

record_inbox::record_inbox(shortage &lack)
    : lack_(lack), listening_(open_socket(SOCK_STREAM | SOCK_NONBLOCK)) {
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(protocol::record_port);
    setsockopt(listening_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listening_.get(), generic(address), sizeof address) != 0 ||
        listen(listening_.get(), backlog) != 0) {
        fail_to_listen(errno);
    }
}

void record_inbox::watch(poll_set &set, bool may_accept) const {
    for (const arrival &coming : arrivals_) {
        set.watch(coming.connection.get(), POLLIN);
    }
    if (!arrivals_.empty()) {
        set.wake_by(arrivals_.front().end);
    }
    if (lack_.is_resting()) {
        set.wake_by(lack_.rest_end());
    } else if (may_accept) {
        set.watch(listening_.get(), POLLIN);
    }
}

void record_inbox::advance(const poll_set &events, const take_fn &take) {
    for (arrival &one : std::exchange(arrivals_, {})) {
        const bool has_event = events.has_event(one.connection.get());
        proceed(std::move(one), has_event, take);
    }
    if (events.has_event(listening_.get())) {
        accept_arrivals(take);
    }
}

// Most have brought their whole record, so that they need not be kept.
void record_inbox::accept_arrivals(const take_fn &take) {
    for (std::size_t count = 0; count < most_accepted; ++count) {
        arrival coming;
        socklen_t size = sizeof coming.from;
        coming.connection =
            descriptor_owner(accept4(listening_.get(), reinterpret_cast<sockaddr *>(&coming.from),
                                     &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (coming.connection.get() < 0) {
            if (is_shortage(errno)) {
                lack_.note();
            }
            return;
        }
        coming.end = clock_type::now() + longest_arrival;
        proceed(std::move(coming), true, take);
    }
}

void record_inbox::proceed(arrival coming, bool has_event, const take_fn &take) {
    if (!is_complete(coming, has_event)) {
        if (arrivals_.size() == most_arrivals) {
            arrivals_.erase(arrivals_.begin());
        }
        arrivals_.push_back(std::move(coming));
        return;
    }
    // Handled after the connection is closed: the unit sends nothing else before that.
    coming.connection = descriptor_owner();
    if (!coming.bytes.empty()) {
        take(coming.from, coming.bytes);
    }
}

bool record_inbox::is_complete(arrival &coming, bool has_event) {
    const bool is_late = clock_type::now() >= coming.end;
    std::array<std::uint8_t, most_bytes> buffer{};
    while (has_event && coming.bytes.size() < most_bytes) {
        const ssize_t count = recv(coming.connection.get(), buffer.data(), buffer.size(), 0);
        if (count > 0) {
            coming.bytes.insert(coming.bytes.end(), buffer.begin(), buffer.begin() + count);
        } else if (count == 0 || errno != EINTR) {
            return count == 0 || errno != EAGAIN || is_late;
        }
    }
    return has_event || is_late;
}
