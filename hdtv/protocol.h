#pragma once

#include <cstdint>

/// The wire format of the gateway's messages and of the records sent back to it. One receive is one
/// message; byte 0 is its type; 16-bit numbers are big-endian; texts run to the first zero byte.
/// docs/protocol.md describes it for integrators.
namespace protocol {

constexpr int version = 47;
constexpr std::uint16_t command_port = 4000; ///< ours, TCP and UDP
constexpr std::uint16_t record_port = 5000;  ///< the gateway's, TCP

constexpr int message_capacity = 4096;
constexpr int tcp_message_limit = 4095; ///< so that a TCP message is always followed by a zero byte

enum class message_type : std::uint8_t {
    rollcall_request = 1, ///< UDP only
    display_alert = 3,
    reboot = 32,
    hdtv_alert = 38,
    set_date = 40,
    stop_turnout = 46, ///< TCP only
    set_page_address = 48,
    hdtv_settings = 49,
    detail_alert = 51,
    set_map_address = 52, ///< TCP only
    json_control = 123,   ///< the character "{"
};

/// The alert flag of display and detail alerts that means "on"; every other value means "off".
constexpr int alert_on = 1;

namespace display_alert {
constexpr int flag = 1;
constexpr int text_length = 4; ///< 16 bits
constexpr int text = 6;
constexpr int trailer_size = 2; ///< the turnout timer, present when the length says exactly so
} // namespace display_alert

namespace hdtv_alert {
constexpr int turnout_timer_from_end = 5; ///< 16 bits, offset from the end of the message
} // namespace hdtv_alert

namespace set_date {
constexpr int text = 1;
} // namespace set_date

namespace set_page_address {
constexpr int text = 1;
} // namespace set_page_address

namespace hdtv_settings {
constexpr int quarter_turns = 1;
} // namespace hdtv_settings

namespace detail_alert {
constexpr int flag = 1;
constexpr int unit_slots = 16;
constexpr int unit_colors = 4; ///< one byte per slot; 0: the slot is empty
constexpr int unit_names = 20;
constexpr int unit_name_size = 32; ///< zero included
constexpr int turnout_end = 532;   ///< 16 bits
constexpr int turnout_zero = 534;  ///< 16 bits
constexpr int turnout_reverse = 536;
constexpr int text_length = 537; ///< 16 bits
constexpr int text = 539;
} // namespace detail_alert

namespace set_map_address {
constexpr int text = 1;
} // namespace set_map_address

namespace json_control {
constexpr int text = 0; ///< the type byte is its first character
} // namespace json_control

/// A record is its code, the hardware address of eth0, and for the roll-call reply two fixed bytes.
constexpr int hardware_address_size = 6;

namespace rollcall_reply {
constexpr std::uint8_t code = 2;
constexpr int hardware_address = 1;
constexpr int fixed_byte = 7;
constexpr std::uint8_t fixed_byte_value = 12;
constexpr int version_byte = 8;
constexpr int size = 9;
} // namespace rollcall_reply

namespace request {
constexpr std::uint8_t set_date = 39;
constexpr std::uint8_t hdtv_settings = 47;
constexpr int hardware_address = 1;
constexpr int size = 7;
} // namespace request

} // namespace protocol
