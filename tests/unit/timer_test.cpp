#include "hdtv/timer.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace {

using steady = std::chrono::steady_clock;

event timer;
steady::time_point armed_at;
steady::time_point fired_at;

void fire_fn(int /*fd*/, short /*what*/, void * /*arg*/) {
    fired_at = steady::now();
}

void block_fn(int /*fd*/, short /*what*/, void * /*arg*/) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    event_set(&timer, -1, 0, fire_fn, nullptr);
    arm_timer(timer, 1);
    armed_at = steady::now();
}

// The event library caches the time at which its loop woke up. Where it counts from there, a second
// is over before a callback that blocks for longer arms its timer.
TEST(timer, armed_after_a_callback_that_blocked_has_its_full_period) {
    event_init();
    event blocking;
    event_set(&blocking, -1, 0, block_fn, nullptr);
    const timeval at_once = {0, 0};
    event_add(&blocking, &at_once);
    event_dispatch();
    EXPECT_GE(fired_at - armed_at, std::chrono::milliseconds(990));
}

} // namespace
