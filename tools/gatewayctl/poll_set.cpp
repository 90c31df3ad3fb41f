#include "tools/gatewayctl/poll_set.h"

#include <algorithm>
#include <cerrno>
#include <limits>

void poll_set::watch(int fd, short events) {
    waiting_.push_back({fd, events, 0});
}

void poll_set::wake_by(clock_type::time_point time) {
    end_ = std::min(end_, time);
}

bool poll_set::wait() {
    // Rounded up, so that the time has passed afterwards.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - clock_type::now());
    const auto limit = std::clamp<std::chrono::milliseconds::rep>(left.count(), 0,
                                                                  std::numeric_limits<int>::max());
    if (poll(waiting_.data(), waiting_.size(), static_cast<int>(limit)) >= 0) {
        return true;
    }
    if (errno == EINTR) {
        return false;
    }
    constexpr int rest = 100; // milliseconds; a shortage, of memory for example, may be temporary
    return poll(nullptr, 0, rest) == 0;
}

bool poll_set::has_event(int fd) const {
    return std::ranges::any_of(
        waiting_, [fd](const pollfd &one) { return one.fd == fd && one.revents != 0; });
}
