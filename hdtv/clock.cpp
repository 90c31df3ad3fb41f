#include "hdtv/clock.h"

#include "cec/cec.h"
#include "hdtv/alert_document.h"
#include "hdtv/first_address.h"
#include "hdtv/kiosk.h"
#include "hdtv/timer.h"
#include "hdtv/watchdog.h"

#include <ctime>
#include <event.h>

namespace {

constexpr int clock_period = 1; // seconds
constexpr int power_period = 5;
constexpr int zone_look_period = 60; // ticks

event clock_event;
event power_event;
int ticks_since_zone_look;

void look_for_first_address() {
    if (has_ip_address) {
        return;
    }
    const char *address = take_first_address();
    if (address != nullptr) {
        restart_browser(); // with or without the proxy, as just decided
        write_status_document(address);
    }
}

// Notices a change of the unit's time zone, for the log, without a look at its file at each line.
void follow_zone() {
    if (++ticks_since_zone_look >= zone_look_period) {
        ticks_since_zone_look = 0;
        tzset();
    }
}

} // namespace

void start_clock_timer() {
    start_timer(clock_event, clock_fn, clock_period);
}

void start_power_timer() {
    start_timer(power_event, power_fn, power_period);
}

void clock_fn(int /*fd*/, short /*event*/, void * /*arg*/) {
    keep_browser_alive();
    handle_watchdog();
    look_for_first_address();
    follow_zone();
    arm_timer(clock_event, clock_period);
}

void power_fn(int /*fd*/, short /*event*/, void * /*arg*/) {
    cec_poll_power_status();
    arm_timer(power_event, power_period);
}
