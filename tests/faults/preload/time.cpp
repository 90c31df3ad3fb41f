// The service's monotonic time passes only when the tests say so. The time of day is the real one.

#include "ledger.h"
#include "real.h"

#include <ctime>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace {

constexpr std::uint64_t second = 1000; // milliseconds

// How long a sleep really takes: the television's time to answer.
constexpr timespec real_sleep = {0, 60'000'000};

constexpr int slice = 1; // of a wait, in real milliseconds

// Answers the tests once nothing is left to do: no descriptor is ready and no timer is due.
template <typename wait_fn> int wait_until_due(int timeout, wait_fn wait_for_a_slice) {
    ledger *told = shared_ledger();
    const std::uint64_t end = told->now + static_cast<std::uint64_t>(timeout < 0 ? 0 : timeout);
    for (;;) {
        const std::uint32_t asked = told->asked;
        const int ready = wait_for_a_slice();
        if (ready != 0 || (timeout >= 0 && told->now >= end)) {
            return ready;
        }
        told->answered = asked;
    }
}

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec *time) noexcept {
    const bool is_monotonic = clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE;
    const ledger *told = shared_ledger();
    if (told == nullptr || !is_monotonic) {
        return real<int(clockid_t, timespec *)>("clock_gettime")(clock, time);
    }
    const std::uint64_t now = told->now;
    time->tv_sec = static_cast<std::time_t>(now / second);
    time->tv_nsec = static_cast<long>(now % second * 1'000'000);
    return 0;
}

// No time passes: how often a slow television is asked again must not move what is due later.
unsigned sleep(unsigned seconds) {
    if (shared_ledger() == nullptr) {
        return real<unsigned(unsigned)>("sleep")(seconds);
    }
    nanosleep(&real_sleep, nullptr);
    return 0;
}

int epoll_wait(int epoll_fd, epoll_event *events, int most, int timeout) {
    auto *const wait_really = real<int(int, epoll_event *, int, int)>("epoll_wait");
    if (shared_ledger() == nullptr) {
        return wait_really(epoll_fd, events, most, timeout);
    }
    if (must_fail("epoll_wait")) {
        return -1;
    }
    return wait_until_due(timeout, [&] { return wait_really(epoll_fd, events, most, slice); });
}

// The event library's second choice.
int poll(pollfd *watched, nfds_t count, int timeout) {
    auto *const wait_really = real<int(pollfd *, nfds_t, int)>("poll");
    if (shared_ledger() == nullptr) {
        return wait_really(watched, count, timeout);
    }
    if (must_fail("poll")) {
        return -1;
    }
    return wait_until_due(timeout, [&] { return wait_really(watched, count, slice); });
}
}
