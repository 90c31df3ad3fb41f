#include "tools/gatewayctl/delivery.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/ending.h"
#include "tools/gatewayctl/exchange.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/socket.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <utility>

namespace {

struct job {
    const inventory_unit &unit;
    std::optional<sockaddr_in> address{}; // once it is resolved
    std::optional<exchange> sending{};    // in progress
    bool has_place = false;               // counts as one of those sent to at once
    std::string failure{};                // of the latest attempt that failed
    clock_type::time_point due{};         // of the next attempt
    clock_type::time_point begin{};       // of the first one
    int attempts = 0;
    bool is_over = false;
};

class delivery {
  public:
    delivery(const std::vector<inventory_unit> &units, const message_fn &make,
             const delivery_settings &settings, const result_fn &report)
        : make_(make), settings_(settings), report_(report), left_(units.size()) {
        for (const inventory_unit &unit : units) {
            jobs_.push_back({unit});
        }
    }

    void run() {
        while (left_ > 0 && !has_to_end()) {
            start_what_is_due();
            wait_and_advance();
        }
        while (is_awaiting_proof()) { // of what has been read
            wait_and_advance();
        }
        for (job &one : jobs_) {
            if (!one.is_over) {
                interrupt(one);
            }
        }
    }

  private:
    void start_what_is_due();
    void start(job &one);
    bool resolve_unit(job &one);
    void send(job &one);
    bool is_sending() const;
    bool is_awaiting_proof() const;
    void wait_and_advance();
    void advance(job &one, const poll_set &events);
    void interrupt(job &one);
    void give_place(job &one);
    void fail(job &one, const std::string &reason);
    void end(job &one, const std::string &failure);
    std::chrono::milliseconds random_pause();

    const message_fn &make_;
    const delivery_settings &settings_;
    const result_fn &report_;
    std::vector<job> jobs_;   // in the order of the units
    std::size_t left_;        // jobs that are not over
    std::size_t sending_ = 0; // jobs that have a place
    std::map<std::pair<std::uint32_t, std::uint16_t>, const job *> by_address_;
    std::minstd_rand random_{std::random_device{}()};
};

void delivery::start_what_is_due() {
    const auto now = clock_type::now();
    for (job &one : jobs_) {
        if (sending_ >= settings_.parallel) {
            return;
        }
        if (!one.is_over && !one.sending && one.due <= now) {
            start(one);
        }
    }
}

void delivery::start(job &one) {
    if (one.attempts == 0) {
        one.begin = clock_type::now();
    }
    ++one.attempts;
    try {
        if (resolve_unit(one)) {
            send(one);
        }
    } catch (const run_failure &failure) {
        fail(one, failure.what());
    }
}

// Whether the message is to be sent there.
bool delivery::resolve_unit(job &one) {
    if (one.address) {
        return true;
    }
    const sockaddr_in address = resolve(one.unit.address);
    const auto [known, is_new] =
        by_address_.emplace(std::pair(address.sin_addr.s_addr, address.sin_port), &one);
    if (!is_new) {
        end(one, "not sent: " + to_text(address) + " is " + known->second->unit.name + ", too");
        return false;
    }
    one.address = address;
    return true;
}

void delivery::send(job &one) {
    if (settings_.via == channel::udp) {
        send_over_udp(*one.address, make_());
        end(one, "");
        return;
    }
    descriptor_owner connection = try_socket(exchange::socket_type);
    if (connection.get() < 0 && is_shortage(errno) && is_sending()) {
        constexpr std::chrono::milliseconds rest(100); // an exchange may end until then
        --one.attempts;
        one.due = clock_type::now() + rest;
        return;
    }
    if (connection.get() < 0) {
        throw run_failure("cannot create a socket: " + reason(errno));
    }
    one.sending.emplace(std::move(connection), *one.address, make_(),
                        clock_type::now() + settings_.timeout);
    one.has_place = true;
    ++sending_;
    one.sending->start();
}

bool delivery::is_sending() const {
    return std::ranges::any_of(jobs_, [](const job &one) { return one.sending.has_value(); });
}

bool delivery::is_awaiting_proof() const {
    return std::ranges::any_of(
        jobs_, [](const job &one) { return one.sending && one.sending->is_ended(); });
}

void delivery::wait_and_advance() {
    // A signal that arrives just before the wait is noticed after this at the latest.
    constexpr std::chrono::milliseconds longest_wait(200);
    poll_set events(clock_type::now() + longest_wait);
    for (const job &one : jobs_) {
        if (one.sending) {
            one.sending->watch(events);
        } else if (!one.is_over && sending_ < settings_.parallel) {
            events.wake_by(one.due);
        }
    }
    if (left_ == 0) {
        return;
    }
    events.wait();
    for (job &one : jobs_) {
        if (one.sending) {
            advance(one, events);
        }
    }
}

void delivery::advance(job &one, const poll_set &events) {
    try {
        if (one.sending->advance(events)) {
            end(one, "");
        } else if (one.sending->is_ended()) {
            give_place(one); // nobody has to wait for the proof
        }
    } catch (const run_failure &failure) {
        fail(one, failure.what());
    }
}

void delivery::interrupt(job &one) {
    if (one.sending && one.sending->give_up()) {
        end(one, "interrupted: sent, not read yet, taken back");
    } else if (!one.failure.empty()) {
        end(one, "interrupted; the last attempt failed: " + one.failure);
    } else {
        end(one, "not sent: interrupted");
    }
}

void delivery::give_place(job &one) {
    sending_ -= std::exchange(one.has_place, false) ? 1 : 0;
}

void delivery::fail(job &one, const std::string &reason) {
    if (one.attempts > settings_.retries) {
        end(one, reason);
        return;
    }
    give_place(one);
    one.sending.reset();
    one.failure = reason;
    one.due = clock_type::now() + random_pause();
}

void delivery::end(job &one, const std::string &failure) {
    const auto time = one.attempts > 0 ? clock_type::now() - one.begin : clock_type::duration();
    give_place(one);
    one.sending.reset();
    one.is_over = true;
    --left_;
    report_({one.unit, one.address ? to_text(*one.address) : one.unit.address, failure,
             one.attempts, std::chrono::duration_cast<std::chrono::milliseconds>(time)});
}

std::chrono::milliseconds delivery::random_pause() {
    std::uniform_int_distribution<std::chrono::milliseconds::rep> any(
        settings_.shortest_pause.count(), settings_.longest_pause.count());
    return std::chrono::milliseconds(any(random_));
}

} // namespace

void deliver(const std::vector<inventory_unit> &units, const message_fn &make,
             const delivery_settings &settings, const result_fn &report) {
    delivery(units, make, settings, report).run();
}
