#pragma once

#include <optional>
#include <string>
#include <vector>

/// The machine's processes, from /proc.

struct process {
    int pid = 0;
    int parent = 0;
    unsigned long long started = 0;     ///< clock ticks after the machine did
    char state = '?';                   ///< 'Z': it has ended and nobody has waited for it
    std::string name;                   ///< at most 15 characters
    std::vector<std::string> arguments; ///< argv[0] included; empty for a zombie
};

std::vector<process> list_processes();

/// What a line of /proc/PID/stat says: pid, name, state and parent. Nothing if it says nothing.
std::optional<process> parse_process(const std::string &line);

/// Whether this program sees everything: others than root see less.
bool is_root();

/// How long it has been running, in seconds.
long long running_time(const process &which);

/// By so many seconds a file that it has written may seem to be older than that.
constexpr int clock_rounding = 1;

/// The targets of its descriptors, such as "/dev/watchdog" or "socket:[1234]"; nothing if this user
/// may not see them.
std::optional<std::vector<std::string>> open_files(int pid);

/// The process that has this among its descriptors; nothing if none is seen.
std::optional<process> holder_of(const std::vector<process> &all, const std::string &target);

/// "hdtv (process 12)".
std::string name_and_id(const process &which);

/// What the sections look at: the processes, and which of them is the service.
struct snapshot {
    std::vector<process> all;
    std::vector<process> services; ///< more than one is a fault
    const process *service() const {
        return services.empty() ? nullptr : services.data();
    }
};

snapshot take_snapshot();
snapshot make_snapshot(std::vector<process> all);
