#pragma once

#include "hdtv/messages.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Messages to a unit, each as the bytes to send in one write. All of them throw usage_failure for
/// values that do not fit into a message or its fields, stating the limits.

using message_bytes = std::vector<std::uint8_t>;

/// The maximum number of bytes that a unit reads of one message.
int message_limit(channel via);

struct display_alert_settings {
    std::string text;
    int flag = 1;
    std::optional<int> turnout; ///< seconds; none: the unit's timer stays as it is
};
message_bytes make_display_alert(const display_alert_settings &settings, channel via);

struct called_unit {
    std::string name;
    int color = 1; ///< 1 to 255; 1 to 16 are in the palette
};

struct detail_alert_settings {
    std::string text;
    std::vector<called_unit> units; ///< in slot order
    int flag = 1;
    int turnout_end = 0; ///< seconds, like the next one
    int turnout_zero = 0;
    int turnout_reverse = 0;
};
message_bytes make_detail_alert(const detail_alert_settings &settings, channel via);

/// A text as typed on the command line: "\n" starts a new line, and "\\" is one backslash.
std::string unescape(const std::string &typed);

/// "NAME:COLOR" with the color's number or name ("E1:2", "E1:blue"), or just a name, which gets color 1.
called_unit parse_unit(const std::string &text);

message_bytes make_hdtv_alert(int turnout);
message_bytes make_rollcall_request();
message_bytes make_reboot();
message_bytes make_stop_turnout();
message_bytes make_set_date(const std::string &date, channel via);
message_bytes make_set_page_address(const std::string &address, channel via);
message_bytes make_set_map_address(const std::string &address, channel via);

/// Degrees: 0, 90, 180 or 270.
message_bytes make_hdtv_settings(int rotation);

struct clip_settings {
    std::string address; ///< ends in ".wav" or ".raw"
    std::optional<std::string> device, volume, channels, rate, sample_format;
};
message_bytes make_play_audio(const clip_settings &settings, channel via);

message_bytes make_set_gateway(const std::string &address, channel via);

/// Raw bytes from hexadecimal text, with any spaces, colons and commas between them.
message_bytes parse_hex(const std::string &text);
