#include "hdtv/timer.h"

#include <event2/event.h>
#include <tuple>

void arm_timer(event &timer, int seconds) {
    std::ignore = event_base_update_cache_time(event_get_base(&timer));
    const timeval period = {seconds, 0};
    event_add(&timer, &period);
}

void start_timer(event &timer, event_callback_fn callback, int seconds) {
    event_set(&timer, -1, 0, callback, nullptr);
    arm_timer(timer, seconds);
}
