#pragma once

#include "hdtv/message.h"
#include "hdtv/protocol.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

/// Parsers for the gateway's messages: each turns the bytes of one message type into a value,
/// without side effects. Any bytes of any length yield a value; bytes beyond the message read as
/// zeros. The texts are views into the message, which has to outlive the value.

/// The channel on which a message arrived.
enum class channel { tcp, udp };

/// Whether a message of this type is valid on this channel. Deliberately, types 46 and 52 are valid
/// on TCP only and type 1 on UDP only; unknown types are valid nowhere.
bool counts_on(std::uint8_t type, channel from) noexcept;

struct display_alert {
    std::uint8_t flag;          ///< protocol::alert_on or anything else
    std::string_view text;      ///< without the trailer
    std::optional<int> turnout; ///< seconds; present when the length field says exactly so
};
display_alert read_display_alert(const gateway_message &message) noexcept;

struct hdtv_alert {
    std::optional<int> turnout; ///< seconds; absent in a message too short to hold it
};
hdtv_alert read_hdtv_alert(const gateway_message &message) noexcept;

struct alerted_unit {
    std::string_view name; ///< at most 31 bytes
    std::uint8_t color;    ///< 0: the slot is empty
};

struct detail_alert {
    std::uint8_t flag;
    std::array<alerted_unit, protocol::detail_alert::unit_slots> units;
    int turnout_end; ///< seconds, like the next one
    int turnout_zero;
    std::uint8_t turnout_reverse;
    int text_length;       ///< as the message claims it; 0: the alert counts as one without text
    std::string_view text; ///< up to its zero byte, whatever its length field says
};
detail_alert read_detail_alert(const gateway_message &message) noexcept;

struct set_date {
    const char *date; ///< zero-terminated, so that a program gets it as it came
};
set_date read_set_date(const gateway_message &message) noexcept;

struct set_page_address {
    std::string_view address;
};
set_page_address read_set_page_address(const gateway_message &message) noexcept;

struct hdtv_settings {
    int quarter_turns; ///< 0 to 255
};
hdtv_settings read_hdtv_settings(const gateway_message &message) noexcept;

struct set_map_address {
    std::string_view address;
};
set_map_address read_set_map_address(const gateway_message &message) noexcept;

struct json_control {
    std::string_view text; ///< the whole message, type byte included
};
json_control read_json_control(const gateway_message &message) noexcept;
