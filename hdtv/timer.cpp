#include "hdtv/timer.h"

#include "hdtv/complaint.h"

#include <ctime>
#include <event2/event.h>
#include <sys/time.h>

namespace {

#ifdef HDTV_LIBEVENT_UPDATES_TIME

timeval from_now(const event &timer, int seconds) {
    event_base_update_cache_time(event_get_base(&timer));
    return {seconds, 0};
}

#else // libevent 2.0 has no such call: add the loop's lag to the period.

timeval monotonic_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return {now.tv_sec, static_cast<suseconds_t>(now.tv_nsec / 1000)};
}

timeval time_between(const timeval &start, const timeval &end) {
    timeval difference{};
    timersub(&end, &start, &difference);
    return timercmp(&start, &end, <) ? difference : timeval{};
}

timeval from_now(const event &timer, int seconds) {
    timeval cached{};
    timeval now{};
    event_base_gettimeofday_cached(event_get_base(&timer), &cached);
    gettimeofday(&now, nullptr);
    timeval behind = time_between(cached, now);
    // These are wall-clock times, which a set-date message changes; a loop that woke up for this
    // timer cannot lag further behind than the timer is overdue. (One that was never armed is not.)
    const bool is_rearmed = timer.ev_timeout.tv_sec != 0;
    const timeval overdue = time_between(timer.ev_timeout, monotonic_now());
    const bool was_clock_set_back = timercmp(&now, &cached, <);
    if (is_rearmed && (was_clock_set_back || timercmp(&overdue, &behind, <))) {
        behind = overdue;
    }
    const timeval period = {seconds, 0};
    timeval sum{};
    timeradd(&period, &behind, &sum);
    return sum;
}

#endif

} // namespace

void arm_timer(event &timer, int seconds) {
    const timeval period = from_now(timer, seconds);
    if (event_add(&timer, &period) < 0) {
        complain("cannot arm a timer");
    }
}

void start_timer(event &timer, event_callback_fn callback, int seconds) {
    event_set(&timer, -1, 0, callback, nullptr);
    arm_timer(timer, seconds);
}
