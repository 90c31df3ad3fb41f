#include "run.h"

#include "agreement.h"
#include "console.h"
#include "model.h"

#include "cec/cec.h"
#include "hdtv/hdtv.h"
#include "hdtv/startup.h"
#include "reset_service.h"

#include <cstdlib>

namespace virtual_time {

namespace {

using check_fn = void (model::*)(const trace &, bool);

model *expected; // of the current start
check_fn current_step;
outcome result;

void violate(const std::string &what) {
    result.is_violated = true;
    result.at = world.now;
    result.text = what;
}

bool is_step_right(bool is_interrupted) {
    try {
        (expected->*current_step)(world.acts, is_interrupted);
        if (!is_interrupted) {
            compare_state(*expected);
        }
        return true;
    } catch (const violation &wrong) {
        violate(wrong.what());
        return false;
    }
}

// No object that needs a destructor may live here: a violation leaves through the service's frames.
void end_step() {
    ++world.counts.steps;
    const bool is_right = is_step_right(false);
    world.acts.clear();
    current_step = &model::check_idle;
    if (!is_right) {
        world.end_boot(broken);
    }
}

check_fn check_of(std::string_view name) {
    return name == "clock"     ? &model::check_clock
           : name == "power"   ? &model::check_power
           : name == "fb_time" ? &model::check_health
           : name == "connect" ? &model::check_connection
                               : &model::check_datagram;
}

void call(watched_event &event) {
    current_step = check_of(event.name);
    event.deadline = never;
    event.callback(event.fd, 0, nullptr);
    end_step();
}

watched_event *find_reader(std::string_view name) {
    for (watched_event &event : world.watched) {
        if (event.name == name) {
            return &event;
        }
    }
    return nullptr;
}

watched_event &first_timer() {
    watched_event *first = &world.watched.front();
    for (watched_event &event : world.watched) {
        if (event.deadline < first->deadline) {
            first = &event;
        }
    }
    return *first;
}

void serve_channels() {
    if (!world.connections.empty()) {
        call(*find_reader("connect"));
    }
    if (!world.datagrams.empty()) {
        call(*find_reader("rollcall"));
    }
}

// As if the process had been loaded anew.
void forget_everything() {
    reset_service();
    // The television's state has no such operation: an alert while it is on leaves none.
    const int missing = world.tv.missing;
    world.tv.missing = 0;
    cec_init();
    cec_alert_active();
    world.tv.missing = missing;
}

void start_service() {
    forget_everything();
    world.power_up();
    ++world.counts.starts;
    world.is_off = false;
    current_step = &model::check_start;
    char name[] = "hdtv";
    char *arguments[] = {name, nullptr};
    run_service(1, arguments);
    world.end_boot(broken);
}

// Until the unit is reset: why it was.
int live_once() {
    const int reason = setjmp(world.boot_end);
    if (reason == 0) {
        start_service();
    }
    return reason;
}

} // namespace

void run_loop() {
    end_step();
    while (true) {
        if (world.acts.size() > 0) {
            end_step();
        }
        serve_channels();
        watched_event &timer = first_timer();
        if (timer.deadline <= world.now) {
            call(timer);
            continue;
        }
        if (world.connections.empty() && world.datagrams.empty()) {
            world.advance(std::min(timer.deadline, world.next_at()));
        }
    }
}

outcome live_through(const history &events, std::int64_t duration) {
    const console_capture capture;
    result = {};
    world = {};
    history all = events;
    all.push_back({duration, kind::end});
    world.events = &all;
    for (int reason = reset; reason == reset;) {
        model fresh;
        expected = &fresh;
        reason = live_once();
        if (!world.is_off && reason != broken) {
            is_step_right(true);
        }
        world.is_off = true;
        reason = result.is_violated ? broken : reason;
    }
    if (result.text.empty()) {
        result.at = world.now;
    }
    result.counts = world.counts;
    return result;
}

} // namespace virtual_time
