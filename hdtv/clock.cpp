#include "hdtv/clock.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "cec/cec.h"
#include "hdtv/alert_document.h"
#include "hdtv/hdtv.h"
#include "hdtv/kiosk.h"
#include "hdtv/network_identity.h"
#include "hdtv/proxy.h"
#include "hdtv/timer.h"
#include "hdtv/watchdog.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <event.h>
#include <netinet/in.h>
#include <sys/stat.h>

namespace {

constexpr int clock_period = 1; // seconds
constexpr int power_period = 5;

event clock_event;
event power_event;

// A browser that has exited but was not waited for still has its entry, and counts as alive.
bool is_browser_gone() {
    char path[32] = {};
    struct stat status {};
    std::snprintf(path, sizeof path, "/proc/%i", kiosk_pid);
    return stat(path, &status) == -1 && errno == ENOENT;
}

void keep_browser_alive() {
    if (url != nullptr && kiosk_pid > 0 && is_browser_gone()) {
        set_url_w_rotation(url);
    }
}

// The first address only: its loss or change later is not looked at, nor is the proxy again.
void look_for_first_address() {
    if (has_ip_address) {
        return;
    }
    in_addr ip{};
    ip.s_addr = get_ip_address();
    const bstr_owner text(bfromcstr(inet_ntoa(ip)));
    if (biseqcstr(text.get(), "0.0.0.0") != 0) {
        return;
    }
    has_ip_address = true;
    choose_proxy(bstr_text(text.get()));
    if (url != nullptr) {
        set_url_w_rotation(url);
    }
    write_status_document(bstr_text(text.get()));
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
    arm_timer(clock_event, clock_period);
}

void power_fn(int /*fd*/, short /*event*/, void * /*arg*/) {
    cec_poll_power_status();
    arm_timer(power_event, power_period);
}
