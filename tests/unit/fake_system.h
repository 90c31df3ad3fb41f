#pragma once

#include <csetjmp>
#include <ctime>
#include <event.h>
#include <map>
#include <netinet/in.h>
#include <string>
#include <sys/types.h>
#include <vector>

/// The system that the service sees in the unit tests: while it is active, every call of the
/// service that would reach files, processes, sockets or the event loop is answered from here and
/// recorded. The calls are replaced at link time, so the service's own code is what ships.
namespace fake {

struct interface_record {
    std::string name;
    std::string address; ///< dotted; empty when the interface has none
    std::string hardware_address;
};

struct connection {
    std::string peer; ///< dotted
    std::string data; ///< what its single read returns
    int read_error = 0;
};

struct datagram {
    std::string sender; ///< dotted
    std::string data;
};

struct registered_event {
    int fd;
    short flags;
    void (*callback)(int, short, void *);
    const void *argument;
    bool has_timeout;
};

/// Everything that a test sets up or checks. A new one is a machine on which every call succeeds,
/// without files and without an address.
struct system_state {
    std::vector<std::string> calls; ///< in order, "name argument ..."
    std::map<std::string, std::string> files;
    std::map<std::string, std::time_t> modified; ///< when a file was; never: at the start of time
    std::map<std::string, int> opened_with_mode; ///< path to the mode that open was given
    std::vector<interface_record> interfaces;
    std::vector<connection> connections; ///< accepted in order
    std::vector<datagram> datagrams;     ///< received in order
    std::vector<std::string> sent;       ///< what was written to sockets, one entry per write
    std::vector<registered_event> events;
    /// Calls that fail: "connect", "fork", "open /dev/tty0", ... "connect#2" is the second connect.
    std::vector<std::string> failing;
    pid_t next_pid = 100; ///< what fork returns next; 0 makes the test the child
    /// Every child runs up to its exec, which is recorded, before the parent continues.
    bool keeps_children = false;
    std::map<std::string, std::string> printed; ///< by a command of popen; none: it cannot start
    int next_descriptor = 1000;                 ///< what the next open, socket or accept returns
    std::time_t now = 1'700'000'000;

    /// The recorded calls whose text begins with prefix.
    std::vector<std::string> calls_of(const std::string &prefix) const;
    /// The programs that exec was called with, "path: argv[0] argv[1] ...".
    std::vector<std::string> executed() const;
};

extern system_state state;

/// From now until stop, the service's calls are answered from a fresh state.
void start();
void stop();

/// Where _exit goes, with which a child of the service would end. Nothing can be thrown through the
/// service's code.
extern std::jmp_buf child_end;

/// What a child leaves behind ends with it; here it must not count as leaked.
void ignore_leaks(bool are_ignored);

} // namespace fake

/// Whether the statement, run as a child of the service, ends that child.
#define EXPECT_CHILD_ENDS(statement)                                                               \
    fake::ignore_leaks(true);                                                                      \
    if (setjmp(fake::child_end) == 0) {                                                            \
        statement;                                                                                 \
        ADD_FAILURE() << #statement << " did not end the child";                                   \
    }                                                                                              \
    fake::ignore_leaks(false)
