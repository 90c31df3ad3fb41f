#include "tools/gatewayctl/shortage.h"

namespace {

constexpr std::chrono::milliseconds rest(200);

// After this long without a failure the shortage is over, and the next one is a new one.
constexpr std::chrono::minutes longest_pause(1);

} // namespace

void shortage::note() {
    const auto now = clock_type::now();
    const bool is_new = rest_end_ == clock_type::time_point() || now - rest_end_ > longest_pause;
    rest_end_ = now + rest;
    if (is_new) {
        begin_();
    }
}
