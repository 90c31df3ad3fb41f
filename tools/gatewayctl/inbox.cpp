#include "tools/gatewayctl/inbox.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/own_address.h"
#include "tools/gatewayctl/socket.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <string>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr int backlog = 1024; // a roll call makes all units connect at once
constexpr std::size_t most_arrivals =
    256; // beyond that the oldest is dropped, so that silent peers do no harm
constexpr std::size_t most_bytes = 64; // more than in any record
constexpr std::chrono::seconds longest_arrival(5);

[[noreturn]] void fail_to_listen(int error) {
    const sockaddr_in &own = own_address();
    const std::string port = "port " + std::to_string(protocol::record_port) +
                             (own.sin_addr.s_addr == INADDR_ANY ? "" : " of " + host_text(own));
    if (error == EADDRINUSE) {
        throw run_failure(port + " is in use: another gateway is running on this machine");
    }
    throw run_failure("cannot listen on " + port + ": " + reason(error));
}

} // namespace

record_inbox::record_inbox(shortage &lack)
    : lack_(lack), listening_(open_socket(SOCK_STREAM | SOCK_NONBLOCK)) {
    const int on = 1;
    sockaddr_in address = own_address();
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
    std::vector<arrival> coming;
    for (arrival &one : std::exchange(arrivals_, {})) {
        if (!is_complete(one, events)) {
            coming.push_back(std::move(one));
            continue;
        }
        // Handled after the connection is closed: the unit sends nothing else before that.
        one.connection = descriptor_owner();
        if (!one.bytes.empty()) {
            take(one.from, one.bytes);
        }
    }
    arrivals_ = std::move(coming);
    if (events.has_event(listening_.get())) {
        while (accept_arrival() && arrivals_.size() < most_arrivals) {
        }
    }
}

bool record_inbox::accept_arrival() {
    arrival coming;
    socklen_t size = sizeof coming.from;
    coming.connection =
        descriptor_owner(accept4(listening_.get(), reinterpret_cast<sockaddr *>(&coming.from),
                                 &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (coming.connection.get() < 0) {
        if (is_shortage(errno)) {
            lack_.note();
        }
        return false;
    }
    coming.end = clock_type::now() + longest_arrival;
    if (arrivals_.size() == most_arrivals) {
        arrivals_.erase(arrivals_.begin());
    }
    arrivals_.push_back(std::move(coming));
    return true;
}

bool record_inbox::is_complete(arrival &coming, const poll_set &events) {
    const bool is_late = clock_type::now() >= coming.end;
    if (!events.has_event(coming.connection.get())) {
        return is_late;
    }
    // To its end, if that is there: whole records make room before more connections are accepted.
    std::array<std::uint8_t, most_bytes> buffer{};
    while (coming.bytes.size() < most_bytes) {
        const ssize_t count = recv(coming.connection.get(), buffer.data(), buffer.size(), 0);
        if (count > 0) {
            coming.bytes.insert(coming.bytes.end(), buffer.begin(), buffer.begin() + count);
        } else if (count == 0 || errno != EINTR) {
            return is_late || count == 0 || errno != EAGAIN;
        }
    }
    return true;
}
