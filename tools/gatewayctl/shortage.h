#pragma once

#include "tools/gatewayctl/poll_set.h"

#include <functional>

/// A shortage of file descriptors: pause for a while instead of retrying in a busy loop.
class shortage {
  public:
    using begin_fn = std::function<void()>;

    /// Takes the function to call once when a shortage begins.
    explicit shortage(begin_fn begin) : begin_(std::move(begin)) {}

    /// Call when a descriptor was needed and none was free.
    void note();

    bool is_resting() const {
        return clock_type::now() < rest_end_;
    }
    clock_type::time_point rest_end() const {
        return rest_end_;
    }

  private:
    begin_fn begin_;
    clock_type::time_point rest_end_;
};
