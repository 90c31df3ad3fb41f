#pragma once

#include <chrono>
#include <poll.h>
#include <vector>

using clock_type = std::chrono::steady_clock;

/// What one wait is for: descriptors and a time. Whoever is to see its events does so before any
/// other descriptor is opened, which could get the number of one that has been closed since.
class poll_set {
  public:
    explicit poll_set(clock_type::time_point end) : end_(end) {}

    void watch(int fd, short events);

    /// Not to wait longer than this.
    void wake_by(clock_type::time_point time);

    /// False when a signal has ended it.
    bool wait();

    /// Whether the descriptor was watched, and something has come.
    bool has_event(int fd) const;

  private:
    clock_type::time_point end_;
    std::vector<pollfd> waiting_;
};
