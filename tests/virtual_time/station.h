#pragma once

#include "happening.h"
#include "trace.h"

#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <queue>
#include <string>
#include <vector>

#include <event.h>

/// The unit's machine and everything around it, in virtual time. The service's calls are answered
/// from here: files.cpp, sockets.cpp, processes.cpp, clock.cpp and television.cpp replace them at
/// link time.
namespace virtual_time {

constexpr std::size_t descriptor_limit = 1024;
constexpr std::int64_t never = INT64_MAX;

struct connection {
    std::string peer;
    std::string data;
    int delay = 0; ///< ms until the data can be read
    bool fails = false;
    int attempts = 0;
};

enum class descriptor_kind : std::uint8_t { none, file, watchdog, socket, accepted };

struct descriptor {
    descriptor_kind what = descriptor_kind::none;
    std::string path = {};
    std::size_t offset = 0;
    connection peer = {};
};

struct process {
    int pid;
    std::string path;
    std::string argument; ///< the last
    bool has_ended;
};

struct watched_event {
    event *which;
    int fd;
    void (*callback)(int, short, void *);
    std::int64_t deadline = never; ///< of a timer
    const char *name = "";
};

struct later {
    bool operator()(const happening &a, const happening &b) const {
        return a.at > b.at;
    }
};

struct television {
    int power = 0;
    television_manner manner = television_manner::normal;
    int delay = 200; ///< ms
    bool echoes = false;
    bool is_lost = false;
    int missing = 0; ///< see kind::no_cec
};

struct liveness {
    bool exists = false;
    std::int64_t next_touch = never;
    std::int64_t modified = 0; ///< seconds since the epoch
    bool hangs = false;
};

struct counters {
    long steps, messages, records, notifications, browsers, starts, watchdog_resets;
};

struct station {
    std::int64_t now = 0;
    std::int64_t offset = 1'767'225'600'000; ///< of the wall clock, in ms
    trace acts;
    const history *events = nullptr;
    std::size_t next_event = 0;
    std::priority_queue<happening, std::vector<happening>, later> consequences;
    std::jmp_buf boot_end; ///< where the unit's resets go, through the service's own frames
    bool is_off = true;    ///< the service does not run: nothing is recorded
    counters counts{};

    // Files.
    std::map<std::string, std::string> files;
    std::array<descriptor, descriptor_limit> descriptors;
    long open_descriptors = 0; ///< besides the standard ones
    int full_disks = 0;
    bool has_no_descriptors = false;
    bool is_root_writable = false;
    liveness page;

    // Watchdog.
    bool is_watchdog_missing = false;
    std::int64_t reset_at = never;

    // Processes by pid, and so in the order of their start: thousands, after a year of clips.
    std::map<int, process> children;
    int next_pid = 300;
    int browser_pid = 0;
    int running_browsers = 0;
    bool is_fork_failing = false;
    bool is_exec_failing = false;
    int tool_delay = 0;
    std::string display_answer;

    // Network.
    std::deque<connection> connections;
    std::deque<connection> datagrams;
    answer_mode gateways[3] = {};
    answer_mode proxy = answer_mode::accepts;
    bool is_cable_in = true;
    std::string address = "10.87.33.50";
    bool has_interface = true;
    int usb = 1;
    bool is_listing_failing = false;

    television tv;
    std::vector<watched_event> watched;

    std::int64_t wall() const {
        return (now + offset) / 1000;
    }
    /// The machine is switched on.
    void power_up();
    /// Time passes, and what happens meanwhile happens. Never returns if the unit resets.
    void advance(std::int64_t until);
    /// When something happens next.
    std::int64_t next_at() const;
    [[noreturn]] void end_boot(int reason);
    void after(std::int64_t delay, kind what, int number = 0, std::string text = {});

  private:
    void happen(const happening &event);
};

/// Why the service stopped running.
enum : int { reset = 1, finished = 2, broken = 3 };

extern station world;

// Of the parts.
void deliver(const happening &connection_or_datagram);
void touch_page();
void start_page();
void stop_page();
void end_process(int pid);
void kill_all();
void notify(const happening &message);
void switch_television(int status);

} // namespace virtual_time
