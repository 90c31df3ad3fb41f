#include "hdtv/timer.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace {

using steady = std::chrono::steady_clock;

// Another event of the loop, which makes it look at the time before the timer is due.
class wake_up {
  public:
    wake_up() {
        EXPECT_EQ(pipe(ends_), 0);
        event_set(&reader_, ends_[0], EV_READ, take_fn, nullptr);
        event_add(&reader_, nullptr);
    }
    ~wake_up() {
        close(ends_[0]);
        close(ends_[1]);
    }
    wake_up(const wake_up &) = delete;
    wake_up &operator=(const wake_up &) = delete;

    void trigger() const {
        EXPECT_EQ(write(ends_[1], ".", 1), 1);
    }

  private:
    static void take_fn(int /*fd*/, short /*what*/, void * /*arg*/) {}

    int ends_[2] = {};
    event reader_{};
};

event timer;
const wake_up *waker;
int ticks;
steady::time_point armed_at;
steady::time_point fired_at;

// A tick that takes longer than its period, and the one after it.
void tick_fn(int /*fd*/, short /*what*/, void * /*arg*/) {
    if (++ticks == 2) {
        fired_at = steady::now();
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    waker->trigger();
    arm_timer(timer, 1);
    armed_at = steady::now();
}

// The event library caches the time when its loop woke up. If it counts from there, a one-second
// timer armed after a callback that blocks for longer has already expired.
TEST(timer, armed_after_a_callback_that_blocked_has_its_full_period) {
    event_init();
    const wake_up other;
    waker = &other;
    start_timer(timer, tick_fn, 0);
    event_dispatch();
    EXPECT_EQ(ticks, 2);
    EXPECT_GE(fired_at - armed_at, std::chrono::milliseconds(990));
}

} // namespace
