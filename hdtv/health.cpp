#include "hdtv/health.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/child_process.h"
#include "hdtv/kiosk.h"
#include "hdtv/network_identity.h"
#include "hdtv/programs.h"
#include "hdtv/timer.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <event.h>
#include <string_view>
#include <unistd.h>

namespace {

constexpr int health_period = 30; // seconds

constexpr const char *mode_query = "/usr/bin/tvservice -s";
constexpr const char *status_marker = "state 0x";
constexpr const char *mode_separator = ", ";
constexpr std::ptrdiff_t longest_mode = 10;

constexpr const char *interface_query = programs::ifconfig; // lists what is up
constexpr const char *usb_query = programs::lsusb;
constexpr const char *nic_vendor = "0424:"; // USB vendor id of the network controller

event fb_time_event;

using take_line_fn = void (*)(const char *line, void *arg);

// Calls back for each line of the command's output, at most 4095 bytes at a time. False if the
// command cannot be started.
bool for_each_line(const char *command, take_line_fn take, void *arg) {
    std::FILE *pipe = popen(command, "r");
    if (pipe == nullptr) {
        return false;
    }
    std::array<char, 4096> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), pipe) != nullptr) {
        take(line.data(), arg);
    }
    pclose(pipe);
    return true;
}

// The mode in a status line: the text between the first ", " after the marker and the next space;
// empty if the line contains none.
std::string_view find_mode(const char *line) {
    const char *marker = std::strstr(line, status_marker);
    const char *separator = marker != nullptr ? std::strstr(marker, mode_separator) : nullptr;
    if (separator == nullptr) {
        return {};
    }
    const char *start = separator + std::strlen(mode_separator);
    const char *blank = std::strchr(start, ' ');
    if (blank == nullptr || blank - start > longest_mode) {
        return {};
    }
    return {start, static_cast<std::size_t>(blank - start)};
}

// The last line wins. An earlier match is a deliberate leak, see architecture.md.
void take_mode(const char *line, void *mode) {
    const std::string_view found = find_mode(line);
    if (!found.empty()) {
        *static_cast<bstring *>(mode) = blk2bstr(found.data(), static_cast<int>(found.size()));
    }
}

struct line_count {
    const char *text; // that the lines contain
    int count;
};

void count_line(const char *line, void *arg) {
    auto *lines = static_cast<line_count *>(arg);
    lines->count += std::strstr(line, lines->text) != nullptr ? 1 : 0;
}

int count_lines(const char *command, const char *text) {
    line_count lines = {text, 0};
    return for_each_line(command, count_line, &lines) ? lines.count : -1;
}

void check_display() {
    const bstr_owner mode(get_fb_resolution());
    if (!mode) {
        return;
    }
    std::printf("Current Output Resolution: \"%s\"\n", bstr_text(mode.get()));
    if (!is_fallback_mode(mode.get())) {
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
    for_each_line(mode_query, take_mode, &mode);
    return mode;
}

void reset_fb() {
    run_program(programs::tvservice, {"tvservice", "-o"});
    sleep(1);
    run_program(programs::tvservice, {"tvservice", "-p"});
}

int eth0_is_present() {
    return count_lines(interface_query, wired_interface);
}

unsigned nic_is_present() {
    return static_cast<unsigned>(count_lines(usb_query, nic_vendor));
}

void restart_networking() {
    run_program(programs::network_script, {"S40network", "restart"});
}
