#include "tools/gatewayctl/exchange.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/own_address.h"
#include "tools/gatewayctl/socket.h"

#include <cerrno>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <utility>

namespace {

// A peer that ends the connection with bytes that it has not read resets it, a moment after its end.
constexpr std::chrono::milliseconds proof_time(15);

int pending_error(int fd) {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

} // namespace

exchange::exchange(descriptor_owner connection, const sockaddr_in &unit, message_bytes message,
                   clock_type::time_point end)
    : connection_(std::move(connection)), unit_(unit), message_(std::move(message)), end_(end) {}

void exchange::start() {
    bind_to_own_address(connection_.get());
    if (connect(connection_.get(), generic(unit_), sizeof unit_) == 0) {
        send_message();
    } else if (errno != EINPROGRESS) {
        fail_to_connect(errno);
    }
}

void exchange::watch(poll_set &set) const {
    if (ended_) {
        set.watch(connection_.get(), 0); // a reset only: its end remains readable
        set.wake_by(*ended_ + proof_time);
        return;
    }
    set.watch(connection_.get(), is_sent_ ? POLLIN : POLLOUT);
    set.wake_by(end_);
}

bool exchange::advance(const poll_set &events) {
    const bool has_event = events.has_event(connection_.get());
    if (has_event && is_sent_ && !ended_) {
        look_for_end();
    } else if (has_event && !is_sent_) {
        finish_connecting();
        send_message();
    }
    if (ended_) {
        return is_proven();
    }
    if (clock_type::now() >= end_) {
        fail_in_time();
    }
    return false;
}

bool exchange::give_up() {
    if (!is_sent_) {
        return false;
    }
    const linger at_once{1, 0};
    setsockopt(connection_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    return true;
}

void exchange::finish_connecting() const {
    if (const int error = pending_error(connection_.get()); error != 0) {
        fail_to_connect(error);
    }
}

void exchange::send_message() {
    // An empty socket buffer has room for any whole message.
    const ssize_t sent = send(connection_.get(), message_.data(), message_.size(), MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(message_.size())) {
        throw run_failure("cannot send the whole message: " + reason(errno));
    }
    is_sent_ = true;
}

void exchange::look_for_end() {
    char answer = 0;
    const ssize_t count = recv(connection_.get(), &answer, sizeof answer, 0);
    if (count > 0) {
        throw run_failure("something else than a unit is listening at " + to_text(unit_) +
                          ": it answers, which no unit does");
    }
    if (count == 0) {
        ended_ = clock_type::now();
        return;
    }
    if (errno == ECONNRESET) { // so a peer ends a connection with bytes that it has not read
        fail_cut_off();
    }
    if (errno != EINTR && errno != EAGAIN) {
        throw run_failure("the connection to " + to_text(unit_) + " failed: " + reason(errno));
    }
}

// After the end: the whole message has arrived, and no reset has followed.
bool exchange::is_proven() const {
    const bool is_over = clock_type::now() >= *ended_ + proof_time;
    if (pending_error(connection_.get()) != 0 || !is_all_received()) {
        fail_cut_off();
    }
    return is_over;
}

bool exchange::is_all_received() const {
    int left = 0;
    return ioctl(connection_.get(), SIOCOUTQ, &left) == 0 && left == 0;
}

void exchange::fail_to_connect(int error) const {
    if (error == ECONNREFUSED) {
        throw run_failure("cannot connect to " + to_text(unit_) + ": " + reason(error) +
                          " (the machine is up, but the service is not running)");
    }
    throw run_failure("cannot connect to " + to_text(unit_) + ": " + reason(error));
}

void exchange::fail_cut_off() const {
    throw run_failure(to_text(unit_) +
                      " has closed the connection before it had read the whole message");
}

void exchange::fail_in_time() {
    if (!give_up()) {
        throw run_failure(to_text(unit_) + " does not answer");
    }
    throw run_failure(
        "the message was sent, but " + to_text(unit_) +
        " has not read it yet: the unit is busy, or something else is listening there");
}
