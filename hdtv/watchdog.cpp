#include "hdtv/watchdog.h"

#include "hdtv/descriptor.h"
#include "hdtv/first_address.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

namespace {

constexpr int full_budget = 900; // kicks, one per second

} // namespace

int wdt_fd;
int wdt_seconds = full_budget;

void configure_watchdog() {
    wdt_fd = open(watchdog_device, O_RDWR | O_NOCTTY);
    set_close_on_exec(wdt_fd);
    enable_watchdog();
}

void enable_watchdog() {
    if (wdt_fd < 0) {
        std::puts("Can't open /dev/watchdog");
        return;
    }
    int timeout = watchdog_timeout;
    ioctl(wdt_fd, WDIOC_SETTIMEOUT, &timeout);
    reset_watchdog();
    wdt_seconds = full_budget;
}

void reset_watchdog() {
    // Descriptor 0 is never kicked.
    if (wdt_fd > 0) {
        write_once(wdt_fd, " ");
    }
}

void handle_watchdog() {
    if (wdt_seconds > 0) {
        reset_watchdog();
        --wdt_seconds;
    }
}

void disable_watchdog() {
    write_once(wdt_fd, "V");
}

int check_web_watchdog() {
    const std::time_t now = std::time(nullptr);
    struct stat status {};
    if (stat(liveness_file, &status) != 0) {
        return 1;
    }
    return status.st_mtime + staleness_limit < now ? 0 : 1;
}

void refill_watchdog_budget() {
    if (has_ip_address && check_web_watchdog() != 0) {
        wdt_seconds = full_budget;
    }
}

void reset_watchdog_state() {
    wdt_fd = 0;
    wdt_seconds = full_budget;
}
