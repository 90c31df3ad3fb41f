#include "calls.h"

#include "hdtv/clock.h"
#include "hdtv/health.h"
#include "hdtv/tcp_channel.h"
#include "hdtv/udp_channel.h"
#include "run.h"

#include <algorithm>
#include <ctime>

namespace virtual_time {

namespace {

const char *name_of(void (*callback)(int, short, void *)) {
    constexpr std::pair<void (*)(int, short, void *), const char *> names[] = {
        {power_fn, "power"},
        {connect_fn, "connect"},
        {rollcall_fn, "rollcall"},
        {clock_fn, "clock"},
        {fb_time_fn, "fb_time"}};
    for (const auto &[known, name] : names) {
        if (known == callback) {
            return name;
        }
    }
    return "unknown";
}

watched_event &find_event(const event *e) {
    return *std::find_if(world.watched.begin(), world.watched.end(),
                         [&](const watched_event &known) { return known.which == e; });
}

} // namespace

} // namespace virtual_time

extern "C" {
using namespace virtual_time;

unsigned __real_sleep(unsigned seconds);
unsigned __wrap_sleep(unsigned seconds) {
    PASS_WHEN_OFF(sleep, seconds)
    world.acts.add(act::slept, "", static_cast<long>(seconds));
    world.advance(world.now + seconds * second);
    return 0;
}

std::time_t __real_time(std::time_t *result);
std::time_t __wrap_time(std::time_t *result) {
    PASS_WHEN_OFF(time, result)
    return static_cast<std::time_t>(world.wall());
}

event_base *__real_event_init();
event_base *__wrap_event_init() {
    PASS_WHEN_OFF(event_init)
    return nullptr;
}

event_base *__real_event_get_base(const event *e);
event_base *__wrap_event_get_base(const event *e) {
    PASS_WHEN_OFF(event_get_base, e)
    return nullptr;
}

int __real_event_base_update_cache_time(event_base *base);
int __wrap_event_base_update_cache_time(event_base *base) {
    PASS_WHEN_OFF(event_base_update_cache_time, base)
    return 0;
}

void __real_event_set(event *e, int fd, short flags, void (*callback)(int, short, void *),
                      void *argument);
void __wrap_event_set(event *e, int fd, short flags, void (*callback)(int, short, void *),
                      void *argument) {
    PASS_WHEN_OFF(event_set, e, fd, flags, callback, argument)
    world.watched.push_back({e, fd, callback, never, name_of(callback)});
}

int __real_event_add(event *e, const timeval *timeout);
int __wrap_event_add(event *e, const timeval *timeout) {
    PASS_WHEN_OFF(event_add, e, timeout)
    watched_event &known = find_event(e);
    const long seconds = timeout != nullptr ? timeout->tv_sec : 0;
    world.acts.add(act::armed, known.name, seconds);
    if (timeout != nullptr) {
        known.deadline = world.now + seconds * second;
    }
    return 0;
}

int __real_event_dispatch();
int __wrap_event_dispatch() {
    PASS_WHEN_OFF(event_dispatch)
    run_loop();
    return 0;
}
}
