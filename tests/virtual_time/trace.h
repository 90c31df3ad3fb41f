#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace virtual_time {

/// What the service does to its system, and what the system answers.
enum class act : std::uint8_t {
    printed,
    complained, ///< on standard error
    opened,     ///< text: the path; number: the flags
    read,       ///< of a file; text: what was read
    written,    ///< to a file; text: what was to be written; result: how much was
    kicked,     ///< the watchdog; text: with what
    looked,     ///< stat; text: the path; number: the time of modification, or the size
    removed,
    forked,
    child,  ///< text: what the child did up to its exec
    killed, ///< text: the signal; number: the pid
    waited, ///< number: the pid, or -1 for any
    slept,  ///< number: seconds
    socket, ///< text: tcp or udp
    bound,
    connected, ///< text: address and port
    sent,
    cec,        ///< an operation of the CEC port
    notified,   ///< a CEC notification; number: the reason; text: the message
    lost,       ///< the CEC bus
    asked,      ///< popen; text: the command, a line feed, its output
    console,    ///< the console's mode
    timeout,    ///< the watchdog's
    armed,      ///< text: an event; number: the seconds of its time, or 0
    accepted,   ///< text: the peer
    received,   ///< text: the message; result: its size
    from,       ///< text: the sender of a datagram
    listed,     ///< the interfaces; text: the address of eth0
    hardware,   ///< text: the hardware address of eth0
    dead_close, ///< of a descriptor that is not open
};

struct entry {
    act what;
    long number;
    long result;
    std::int64_t at;   ///< ms since the start
    std::int64_t wall; ///< seconds since the epoch
    std::string text;
};

/// The acts of one step. Its entries are used again, because there are many million steps.
class trace {
  public:
    entry &add(act what, std::string_view text, long number = 0, long result = 0);
    /// Prints that follow each other at the same time are one entry.
    void add_print(act what, std::string_view text);
    void clear() {
        size_ = 0;
    }
    std::size_t size() const {
        return size_;
    }
    const entry &operator[](std::size_t i) const {
        return entries_[i];
    }

  private:
    std::vector<entry> entries_;
    std::size_t size_ = 0;
};

std::string describe(const entry &act);

} // namespace virtual_time
