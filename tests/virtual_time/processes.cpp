#include "calls.h"

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <tuple>
#include <unistd.h>

extern "C" {
pid_t __real_waitpid(pid_t pid, int *status, int options);
[[noreturn]] void __real__exit(int status);
int __real_close(int fd);
ssize_t __real_read(int fd, void *buffer, std::size_t size);
ssize_t __real_write(int fd, const void *data, std::size_t size);
}

namespace virtual_time {

bool is_child;

namespace {

constexpr const char *browser = "/usr/bin/qt-webkit-kiosk";
constexpr const char *station_page = "http://127.0.0.1/station_web/";
constexpr char separator = '\x1E'; // between what a child tells; between arguments the next one

int report = -1; // in a child

// In ms; 0: it runs until something ends it.
std::int64_t duration_of(const std::string &path) {
    constexpr std::pair<const char *, int> durations[] = {
        {"/usr/bin/killall", 50},    {"/sbin/udhcpc", 0},
        {"/bin/mount", 80},          {"/sbin/reboot", 10},
        {"/bin/date", 20},           {"/usr/bin/amixer", 100},
        {"/usr/bin/wget", 400},      {"/usr/bin/aplay", 5000},
        {"/usr/bin/tvservice", 500}, {"/etc/init.d/S40network", 3000}};
    for (const auto &[program, milliseconds] : durations) {
        if (path == program) {
            return milliseconds;
        }
    }
    return 0;
}

process *find_process(int pid) {
    const auto found = world.children.find(pid);
    return found == world.children.end() ? nullptr : &found->second;
}

void mark_ended(process &child) {
    world.running_browsers -= !child.has_ended && child.path == browser;
    child.has_ended = true;
}

void set_clock(const std::string &text) {
    std::tm wanted{};
    if (strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &wanted) != nullptr) {
        touch_page();
        world.offset = static_cast<std::int64_t>(timegm(&wanted)) * second - world.now;
    }
}

// What a program has done when it ends.
void take_effect(const process &child) {
    if (child.path == "/bin/date") {
        set_clock(child.argument);
    } else if (child.path == "/bin/mount") {
        world.is_root_writable = child.argument == "rw,remount";
    } else if (child.path == "/sbin/reboot") {
        world.after(4 * second, kind::reboot);
    } else if (child.path == "/etc/init.d/S40network") {
        world.has_interface = world.has_interface || world.usb != 0;
    } else if (child.path == "/usr/bin/killall") {
        for (auto &[pid, other] : world.children) {
            other.has_ended = other.has_ended || other.path == "/sbin/udhcpc";
        }
    }
}

void execute(process &child) {
    const std::int64_t duration = duration_of(child.path);
    if (world.is_exec_failing) {
        child.has_ended = true;
    } else if (duration > 0) {
        world.after(duration + world.tool_delay, kind::process_end, child.pid);
    } else if (child.path == browser) {
        ++world.counts.browsers;
        ++world.running_browsers;
        world.browser_pid = child.pid;
        if (child.argument.starts_with(station_page)) {
            start_page();
        }
    }
}

// "write 1 …<RS>exec PATH<US>ARGUMENT<US>ARGUMENT"
process read_report(const std::string &told) {
    constexpr std::string_view exec = "exec ";
    const std::size_t start = told.rfind(separator + std::string(exec));
    const std::size_t path = start == std::string::npos ? exec.size() : start + 1 + exec.size();
    const std::size_t end = told.find('\x1F', path);
    return {world.next_pid++, told.substr(path, end - path), told.substr(told.rfind('\x1F') + 1),
            false};
}

std::string read_all(int fd) {
    std::string all;
    char part[8192];
    for (ssize_t size = 0; (size = __real_read(fd, part, sizeof part)) > 0;) {
        all.append(part, static_cast<std::size_t>(size));
    }
    return all;
}

// Of the first child that has ended, or else of the first that ends; -1 if there is none.
int reap(int pid) {
    while (true) {
        bool is_any = false;
        for (auto child = world.children.begin(); child != world.children.end(); ++child) {
            const bool matches = pid < 0 || child->first == pid;
            if (matches && child->second.has_ended) {
                const int reaped = child->first;
                world.children.erase(child);
                return reaped;
            }
            is_any = is_any || matches;
        }
        if (!is_any) {
            return failure(ECHILD);
        }
        world.advance(world.next_at());
    }
}

std::string answer_to(const std::string &command) {
    if (command == "/usr/bin/tvservice -s") {
        return world.display_answer;
    }
    if (command == "/sbin/ifconfig") {
        return std::string(world.has_interface ? "eth0      Link encap:Ethernet\n" : "") +
               "lo        Link encap:Local Loopback\n";
    }
    return world.usb > 0 ? "Bus 001 Device 003: ID 0424:ec00\n" : "Bus 001 Device 001: ID 1d6b:2\n";
}

bool can_be_asked(const std::string &command) {
    return !world.has_no_descriptors && !world.is_fork_failing &&
           world.open_descriptors + 4 < static_cast<long>(descriptor_limit) &&
           (command != "/usr/bin/lsusb" || world.usb >= 0);
}

} // namespace

bool is_process(int pid) {
    return find_process(pid) != nullptr;
}

void end_process(int pid) {
    process *child = find_process(pid);
    if (child == nullptr || child->has_ended) {
        return;
    }
    mark_ended(*child);
    if (pid == world.browser_pid) {
        stop_page();
    }
    take_effect(process(*child));
}

void kill_all() {
    for (auto &[pid, child] : world.children) {
        mark_ended(child);
    }
    stop_page();
}

void tell_parent(const std::string &what) {
    std::ignore = __real_write(report, what.data(), what.size());
    std::ignore = __real_write(report, &separator, 1);
}

} // namespace virtual_time

extern "C" {
using namespace virtual_time;

pid_t __real_fork();
pid_t __wrap_fork() {
    PASS_WHEN_OFF(fork)
    if (world.is_fork_failing) {
        world.acts.add(act::forked, "", 0, -1);
        return failure(EAGAIN);
    }
    int ends[2] = {};
    if (pipe(ends) != 0) {
        std::abort();
    }
    const pid_t real = __real_fork();
    if (real == 0) {
        is_child = true;
        report = ends[1];
        return 0;
    }
    __real_close(ends[1]);
    const std::string told = read_all(ends[0]);
    __real_close(ends[0]);
    __real_waitpid(real, nullptr, 0);
    const process child = read_report(told);
    const int pid = child.pid;
    world.children.emplace(pid, child);
    world.acts.add(act::forked, "", 0, pid);
    world.acts.add(act::child, told);
    execute(*find_process(pid));
    return pid;
}

int __real_execv(const char *path, char *const *argv);
int __wrap_execv(const char *path, char *const *argv) {
    PASS_WHEN_OFF(execv, path, argv)
    std::string call = std::string("exec ") + path;
    for (; *argv != nullptr; ++argv) {
        call += '\x1F';
        call += *argv;
    }
    std::ignore = __real_write(report, call.data(), call.size());
    __real__exit(0);
}

void __wrap__exit(int status) {
    __real__exit(status);
}

int __real_kill(pid_t pid, int signal);
int __wrap_kill(pid_t pid, int signal) {
    PASS_WHEN_OFF(kill, pid, signal)
    world.acts.add(act::killed, std::to_string(signal), pid);
    if (pid == -1) {
        kill_all();
    } else {
        end_process(pid);
    }
    return 0;
}

pid_t __real_wait(int *status);
pid_t __wrap_wait(int *status) {
    PASS_WHEN_OFF(wait, status)
    const int pid = reap(-1);
    world.acts.add(act::waited, "", -1, pid);
    return pid;
}

pid_t __wrap_waitpid(pid_t pid, int *status, int options) {
    PASS_WHEN_OFF(waitpid, pid, status, options)
    const int reaped = reap(pid);
    world.acts.add(act::waited, "", pid, reaped);
    return reaped;
}

std::FILE *__real_popen(const char *command, const char *mode);
std::FILE *__wrap_popen(const char *command, const char *mode) {
    PASS_WHEN_OFF(popen, command, mode)
    static std::string output; // until the next one
    if (!can_be_asked(command)) {
        world.acts.add(act::asked, command, 0, -1);
        errno = EAGAIN;
        return nullptr;
    }
    output = answer_to(command);
    world.acts.add(act::asked, command + ("\n" + output));
    return fmemopen(output.data(), output.size(), "r");
}

int __real_pclose(std::FILE *pipe);
int __wrap_pclose(std::FILE *pipe) {
    PASS_WHEN_OFF(pclose, pipe)
    return std::fclose(pipe);
}

int __real_prctl(int option, ...);
int __wrap_prctl(int option, ...) {
    std::va_list arguments;
    va_start(arguments, option);
    const int value = va_arg(arguments, int);
    va_end(arguments);
    PASS_WHEN_OFF(prctl, option, value)
    tell_parent("prctl " + std::to_string(option) + " " + std::to_string(value));
    return 0;
}

using signal_handler = void (*)(int);
signal_handler __real_signal(int number, signal_handler handler);
signal_handler __wrap_signal(int number, signal_handler handler) {
    PASS_WHEN_OFF(signal, number, handler)
    if (is_child) {
        tell_parent("signal " + std::to_string(number) +
                    (handler == SIG_DFL ? " default" : " other"));
    }
    return SIG_DFL;
}
}
