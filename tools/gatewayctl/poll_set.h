#pragma once

#include <chrono>
#include <poll.h>
#include <vector>

using clock_type = std::chrono::steady_clock;

/// The descriptors and the deadline of one wait. Check its events before opening any other
/// descriptor, which could reuse the number of one that has been closed since.
class poll_set {
  public:
    explicit poll_set(clock_type::time_point end) : end_(end) {}

    void watch(int fd, short events);

    /// Limits the wait to this time.
    void wake_by(clock_type::time_point time);

    /// False if a signal has ended it.
    bool wait();

    /// Whether the descriptor was watched and has an event.
    bool has_event(int fd) const;

  private:
    clock_type::time_point end_;
    std::vector<pollfd> waiting_;
};
