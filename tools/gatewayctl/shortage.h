#pragma once

#include "tools/gatewayctl/poll_set.h"

#include <functional>

/// A time without free descriptors: who lacks one rests for a while instead of asking on and on.
class shortage {
  public:
    using begin_fn = std::function<void()>;

    /// What to do once when one begins.
    explicit shortage(begin_fn begin) : begin_(std::move(begin)) {}

    /// A descriptor was wanted, and there was none.
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
