#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What the world does to a unit.
namespace virtual_time {

enum class kind : std::uint8_t {
    tcp_message,    ///< number: the gateway; more: ms until the message follows the connection
    tcp_failure,    ///< a connection whose read fails
    udp_message,    ///< number: the gateway
    gateway,        ///< number: the gateway; more: an answer_mode, for connections to its port 5000
    proxy,          ///< more: an answer_mode
    cable,          ///< number: whether it is plugged in
    address,        ///< text: eth0's, or empty
    interface,      ///< number: whether eth0 exists
    usb,            ///< number: 1 the controller is listed, 0 it is not, -1 no list
    list_failure,   ///< number: whether listing the interfaces fails
    tv_power,       ///< number: a power status
    tv_manner,      ///< number: a television_manner; more: its delay in ms
    tv_says,        ///< text: a CEC message with its header
    tv_echo,        ///< number: whether the unit hears its own messages
    tv_lost,        ///< the bus is gone for good
    browser_dies,   ///< by itself
    browser_hangs,  ///< number: whether its page is
    exec_failure,   ///< number: whether programs cannot be executed
    clock_jump,     ///< number: by seconds
    full_disk,      ///< number: 1 /tmp, 2 /dev/shm, 4 the root; added up
    no_descriptors, ///< number: whether they have run out
    no_forks,       ///< number: whether fork fails
    slow_tools,     ///< more: ms that each program takes longer
    display,        ///< text: what the display tool prints
    power_cut,
    no_watchdog, ///< from the next start on; number: whether it is missing
    no_cec,      ///< from the next start on; number: 1 no instance, 2 no connection
    config,      ///< text: the configuration file, as somebody edited it
    // Consequences, which no history contains:
    notification, ///< text: a CEC message; number: the reason
    tv_wakes,
    process_end, ///< number: its pid
    reboot,
    end,
};

enum class answer_mode : std::uint8_t { accepts, refuses, is_unreachable, is_silent };
enum class television_manner : std::uint8_t { normal, deaf, stubborn };

struct happening {
    std::int64_t at; ///< ms since the start
    kind what;
    int number = 0;
    int more = 0;
    std::string text = {};
};

using history = std::vector<happening>;

constexpr std::int64_t second = 1000;
constexpr std::int64_t minute = 60 * second;
constexpr std::int64_t hour = 60 * minute;
constexpr std::int64_t day = 24 * hour;

/// One line: when, and what.
std::string describe(const happening &event);

/// "day 3 07:04:09.250"
std::string describe_time(std::int64_t at);

/// Text with everything escaped that is not printable.
std::string printable(const std::string &text, std::size_t longest = 72);

/// The address of a gateway, by its number.
std::string gateway_address(int number);

} // namespace virtual_time
