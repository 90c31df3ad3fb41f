#pragma once

#include "hdtv/message.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

/// The gateway's messages as bytes, spelled out here by hand and not by the code under test.
namespace wire {

constexpr int version = 47;

inline std::string big_endian(int number) {
    return {static_cast<char>(number / 256), static_cast<char>(number % 256)};
}

inline std::string roll_call() {
    return "\x01";
}

/// With the length that it claims for its text, and anything that follows.
inline std::string display_alert_claiming(int length, const std::string &rest, int flag = 1) {
    return std::string("\x03") + static_cast<char>(flag) + std::string(2, '\0') +
           big_endian(length) + rest;
}

inline std::string display_alert(const std::string &text, int flag = 1) {
    return display_alert_claiming(static_cast<int>(text.size()), text, flag);
}

inline std::string display_alert_with_turnout(const std::string &text, int turnout) {
    return display_alert(text) + big_endian(turnout);
}

inline std::string reboot() {
    return "\x20";
}

inline std::string hdtv_alert(const std::string &text, int turnout) {
    return "\x26" + text + big_endian(turnout) + "end";
}

inline std::string set_date(const std::string &date) {
    return "\x28" + date;
}

inline std::string stop_turnout() {
    return "\x2e";
}

inline std::string page_address(const std::string &address) {
    return "\x30" + address;
}

inline std::string settings(int quarter_turns) {
    return std::string("\x31") + static_cast<char>(quarter_turns);
}

struct detail_alert {
    int flag = 1;
    std::string text = "FIRE";
    int text_length = -1;                                  ///< the claimed one; -1: the real one
    std::map<int, std::pair<std::string, int>> units = {}; ///< by slot: name and color
    int turnout_end = 0;
    int turnout_zero = 0;
    int turnout_reverse = 0;

    std::string bytes() const {
        std::string bytes(539, '\0');
        bytes[0] = 0x33;
        bytes[1] = static_cast<char>(flag);
        for (const auto &[slot, unit] : units) {
            bytes[static_cast<std::size_t>(4 + slot)] = static_cast<char>(unit.second);
            bytes.replace(static_cast<std::size_t>(20 + 32 * slot), unit.first.size(), unit.first);
        }
        bytes.replace(532, 2, big_endian(turnout_end));
        bytes.replace(534, 2, big_endian(turnout_zero));
        bytes[536] = static_cast<char>(turnout_reverse);
        bytes.replace(537, 2,
                      big_endian(text_length < 0 ? static_cast<int>(text.size()) : text_length));
        return bytes + text;
    }
};

inline std::string map_address(const std::string &address) {
    return "\x34" + address;
}

/// These bytes as received by the service.
inline gateway_message message_of(const std::string &bytes) {
    gateway_message message;
    std::copy_n(bytes.begin(), std::min<std::size_t>(bytes.size(), 4096), message.receive_area());
    message.set_size(static_cast<int>(bytes.size()));
    return message;
}

} // namespace wire
