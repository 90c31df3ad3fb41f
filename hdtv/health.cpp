#include "hdtv/health.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/child_process.h"
#include "hdtv/kiosk.h"
#include "hdtv/timer.h"

#include <array>
#include <cstdio>
#include <event.h>
#include <string_view>
#include <unistd.h>

namespace {

constexpr int health_period = 30; // seconds

constexpr const char *mode_query = "/usr/bin/tvservice -s";
constexpr std::string_view status_marker = "state 0x";
constexpr std::string_view mode_separator = ", ";
constexpr std::size_t longest_mode = 10;

constexpr const char *interface_query = "/sbin/ifconfig"; // lists what is up
constexpr std::string_view interface_name = "eth0";
constexpr const char *usb_query = "/usr/bin/lsusb";
constexpr std::string_view nic_vendor = "0424:"; // USB vendor id of the network controller

event fb_time_event;

// Calls back for each line of the command's output, at most 4095 bytes at a time. False if the
// command cannot be started.
template <typename line_taker> bool for_each_line(const char *command, const line_taker &take) {
    std::FILE *pipe = popen(command, "r");
    if (pipe == nullptr) {
        return false;
    }
    std::array<char, 4096> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), pipe) != nullptr) {
        take(line.data());
        line = {};
    }
    pclose(pipe);
    return true;
}

// The mode in a status line: the text between the first ", " after the marker and the next space;
// empty if the line contains none.
std::string_view find_mode(std::string_view line) {
    const auto marker = line.find(status_marker);
    if (marker == std::string_view::npos) {
        return {};
    }
    const auto separator = line.find(mode_separator, marker);
    if (separator == std::string_view::npos) {
        return {};
    }
    const auto start = separator + mode_separator.size();
    const auto blank = line.find(' ', start);
    if (blank == std::string_view::npos || blank - start > longest_mode) {
        return {};
    }
    return {line.data() + start, blank - start};
}

int count_lines(const char *command, std::string_view text) {
    int count = 0;
    const bool is_started = for_each_line(command, [&](std::string_view line) {
        count += line.find(text) != std::string_view::npos ? 1 : 0;
    });
    return is_started ? count : -1;
}

void check_display() {
    const bstr_owner mode(get_fb_resolution());
    if (!mode) {
        return;
    }
    std::printf("Current Output Resolution: \"%s\"\n", bstr_text(mode.get()));
    if (biseqcstr(mode.get(), "640x480") != 1 && biseqcstr(mode.get(), "720x480") != 1) {
        return;
    }
    reset_fb();
    if (url != nullptr) {
        sleep(2);
        restart_browser();
    }
}

void check_network() {
    // If the list cannot be read, that does not prove that the interface is missing.
    if (eth0_is_present() != 0) {
        return;
    }
    std::puts("eth0 is missing");
    if (nic_is_present() != 0) {
        std::puts("USB NIC is present, restarting networking");
        restart_networking();
    }
}

} // namespace

void start_fb_time_timer() {
    start_timer(fb_time_event, fb_time_fn, health_period);
}

void fb_time_fn(int /*fd*/, short /*event*/, void * /*arg*/) {
    check_display();
    check_network();
    arm_timer(fb_time_event, health_period);
}

bstring get_fb_resolution() {
    bstring mode = nullptr;
    for_each_line(mode_query, [&](std::string_view line) {
        const std::string_view found = find_mode(line);
        if (!found.empty()) {
            // The last line wins. An earlier match is a deliberate leak, see architecture.md.
            mode = blk2bstr(found.data(), static_cast<int>(found.size()));
        }
    });
    return mode;
}

void reset_fb() {
    run_program("/usr/bin/tvservice", {"tvservice", "-o"});
    sleep(1);
    run_program("/usr/bin/tvservice", {"tvservice", "-p"});
}

int eth0_is_present() {
    return count_lines(interface_query, interface_name);
}

unsigned nic_is_present() {
    return static_cast<unsigned>(count_lines(usb_query, nic_vendor));
}

void restart_networking() {
    run_program("/etc/init.d/S40network", {"S40network", "restart"});
}
