#include "fake_calls.h"

#include <cerrno>
#include <ctime>
#include <event.h>
#include <string>

extern "C" {
using namespace fake;

unsigned __real_sleep(unsigned seconds);
unsigned __wrap_sleep(unsigned seconds) {
    PASS_WHEN_STOPPED(sleep, seconds)
    record("sleep " + std::to_string(seconds));
    return 0;
}

std::time_t __real_time(std::time_t *result);
std::time_t __wrap_time(std::time_t *result) {
    PASS_WHEN_STOPPED(time, result)
    return state.now;
}

event_base *__real_event_init();
event_base *__wrap_event_init() {
    PASS_WHEN_STOPPED(event_init)
    record("event_init");
    return nullptr;
}

void __real_event_set(event *e, int fd, short flags, void (*callback)(int, short, void *),
                      void *argument);
void __wrap_event_set(event *e, int fd, short flags, void (*callback)(int, short, void *),
                      void *argument) {
    PASS_WHEN_STOPPED(event_set, e, fd, flags, callback, argument)
    record("event_set " + std::to_string(fd) + " " + std::to_string(flags));
    state.events.push_back({fd, flags, callback, argument, false});
}

int __real_event_add(event *e, const timeval *timeout);
int __wrap_event_add(event *e, const timeval *timeout) {
    PASS_WHEN_STOPPED(event_add, e, timeout)
    record(timeout == nullptr ? "event_add"
                              : "event_add " + std::to_string(timeout->tv_sec) + " s");
    if (!state.events.empty()) {
        state.events.back().has_timeout = timeout != nullptr;
    }
    return fails("event_add") ? failure(ENOMEM) : 0;
}

int __real_event_dispatch();
int __wrap_event_dispatch() {
    PASS_WHEN_STOPPED(event_dispatch)
    record("event_dispatch");
    return fails("event_dispatch") ? failure(ENOMEM) : 1;
}
}
