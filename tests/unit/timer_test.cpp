#include "hdtv/timer.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace {
long clock_offset; // seconds by which the wall clock has been set
}

extern "C" {
int __real_gettimeofday(timeval *now, void *zone);
int __wrap_gettimeofday(timeval *now, void *zone) {
    const int result = __real_gettimeofday(now, zone);
    now->tv_sec += clock_offset;
    return result;
}
}

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
        event_del(&reader_);
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
long set_during_tick;

// A tick that takes longer than its period, and the one after it.
void tick_fn(int /*fd*/, short /*what*/, void * /*arg*/) {
    if (++ticks == 2) {
        fired_at = steady::now();
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    clock_offset = set_during_tick;
    waker->trigger();
    arm_timer(timer, 1);
    armed_at = steady::now();
}

// How long after a tick that blocked, and during which the wall clock was set, the next one comes.
steady::duration period_after_tick(long clock_set_by) {
    clock_offset = 0;
    set_during_tick = clock_set_by;
    ticks = 0;
    const std::unique_ptr<event_base, decltype(&event_base_free)> loop(event_init(),
                                                                       event_base_free);
    const wake_up other;
    waker = &other;
    start_timer(timer, tick_fn, 0);
    event_dispatch();
    EXPECT_EQ(ticks, 2);
    return fired_at - armed_at;
}

// The event library caches the time at which its loop woke up. If it counted from there, a second would
// be over before a callback that blocks for longer arms its timer.
TEST(timer, armed_after_a_callback_that_blocked_has_its_full_period) {
    EXPECT_GE(period_after_tick(0), std::chrono::milliseconds(990));
}

TEST(timer, clock_that_is_set_meanwhile_changes_no_period) {
    for (const long seconds : {-3600L, 3600L}) {
        const auto period = period_after_tick(seconds);
        EXPECT_GE(period, std::chrono::milliseconds(990));
        EXPECT_LT(period, std::chrono::minutes(1));
    }
}

event new_timer;

void new_timer_fn(int /*fd*/, short /*what*/, void * /*arg*/) {
    ++ticks;
    fired_at = steady::now();
    event_loopbreak();
}

void set_clock_and_start_fn(int /*fd*/, short /*what*/, void * /*arg*/) {
    clock_offset -= 3600;
    armed_at = steady::now();
    start_timer(new_timer, new_timer_fn, 1);
}

TEST(timer, started_after_the_clock_was_set_back_has_its_period) {
    clock_offset = 0;
    ticks = 0;
    const std::unique_ptr<event_base, decltype(&event_base_free)> loop(event_init(),
                                                                       event_base_free);
    start_timer(timer, set_clock_and_start_fn, 0);
    const timeval deadline = {20, 0};
    event_loopexit(&deadline);
    event_dispatch();
    ASSERT_EQ(ticks, 1);
    EXPECT_GE(fired_at - armed_at, std::chrono::milliseconds(990));
    EXPECT_LT(fired_at - armed_at, std::chrono::seconds(10));
    event_del(&new_timer);
}

} // namespace
