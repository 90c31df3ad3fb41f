#include "tools/gatewayctl/messages.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <string_view>

namespace {

using protocol::message_type;

constexpr int largest_number = 0xffff;
constexpr int largest_byte = 0xff;

std::uint8_t to_byte(int value, const char *what) {
    if (value < 0 || value > largest_byte) {
        throw usage_failure(std::string(what) + " is " + std::to_string(value) +
                            ", but has to be from 0 to 255");
    }
    return static_cast<std::uint8_t>(value);
}

message_bytes start_message(message_type type) {
    return {static_cast<std::uint8_t>(type)};
}

message_bytes start_message(message_type type, int size) {
    message_bytes message(static_cast<std::size_t>(size));
    message[0] = static_cast<std::uint8_t>(type);
    return message;
}

void put_number(message_bytes &message, int position, int value, const char *what) {
    if (value < 0 || value > largest_number) {
        throw usage_failure(std::string(what) + " is " + std::to_string(value) +
                            ", but has to be from 0 to 65535 seconds");
    }
    const auto place = static_cast<std::size_t>(position);
    message[place] = static_cast<std::uint8_t>(value >> 8);
    message[place + 1] = static_cast<std::uint8_t>(value & 0xff);
}

// Leaves room for `others` more bytes in the message.
void append_text(message_bytes &message, const std::string &text, const std::string &what,
                 channel via, int others = 0) {
    const int room = message_limit(via) - static_cast<int>(message.size()) - others;
    if (text.size() > static_cast<std::size_t>(room)) {
        throw usage_failure(what + " has " + std::to_string(text.size()) + " bytes; over " +
                            (via == channel::tcp ? "TCP" : "UDP") + " it may have at most " +
                            std::to_string(room));
    }
    message.insert(message.end(), text.begin(), text.end());
}

message_bytes make_text_message(message_type type, const std::string &text, const char *what,
                                channel via) {
    message_bytes message = start_message(type);
    append_text(message, text, what, via);
    return message;
}

void put_unit(message_bytes &message, int slot, const called_unit &unit) {
    namespace layout = protocol::detail_alert;
    if (unit.name.empty()) {
        throw usage_failure("a unit needs a name");
    }
    if (unit.name.size() >= static_cast<std::size_t>(layout::unit_name_size)) {
        throw usage_failure("the unit's name " + quoted(unit.name) + " has " +
                            std::to_string(unit.name.size()) + " bytes; it may have at most " +
                            std::to_string(layout::unit_name_size - 1));
    }
    if (unit.color < 1 || unit.color > largest_byte) {
        throw usage_failure("the color of " + unit.name + " is " + std::to_string(unit.color) +
                            "; colors are 1 to 16, and at most 255");
    }
    *(message.begin() + layout::unit_colors + slot) = static_cast<std::uint8_t>(unit.color);
    const int name = layout::unit_names + layout::unit_name_size * slot;
    std::copy(unit.name.begin(), unit.name.end(), message.begin() + name);
}

// Values are read up to the next quotation mark, and there is no way to escape one.
std::string member(const char *key, const std::string &value) {
    if (value.find('"') != std::string::npos) {
        throw usage_failure(std::string("the protocol allows no quotation mark in \"") + key +
                            "\"");
    }
    return std::string("\"") + key + "\":\"" + value + "\"";
}

message_bytes make_json_control(const std::string &members, channel via) {
    message_bytes message;
    append_text(message, "{" + members + "}", "the control message", via);
    return message;
}

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The unit determines a clip's kind by the first occurrence of the extension.
bool is_clip_address(const std::string &address) {
    const std::string lower = lower_case(address);
    return std::ranges::any_of(std::initializer_list<std::string_view>{".wav", ".raw"},
                               [&lower](std::string_view ending) {
                                   return lower.size() >= ending.size() &&
                                          lower.find(ending) == lower.size() - ending.size();
                               });
}

int digit_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const int letter = std::tolower(static_cast<unsigned char>(c));
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

constexpr const char *color_names[] = {"red",  "blue",   "green",  "yellow", "orange", "purple",
                                       "cyan", "white",  "pink",   "lime",   "brown",  "teal",
                                       "navy", "maroon", "silver", "gray"};

int parse_color(const std::string &text, const std::string &unit) {
    const auto *const name = std::ranges::find(color_names, lower_case(text));
    if (name != std::end(color_names)) {
        return static_cast<int>(name - std::begin(color_names)) + 1;
    }
    const bool is_number = !text.empty() && text.size() <= 3 &&
                           std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
    if (is_number) {
        return std::stoi(text);
    }
    std::string names;
    for (const char *one : color_names) {
        names += (names.empty() ? "" : ", ") + std::string(one);
    }
    throw usage_failure("in the unit " + quoted(unit) +
                        " the color is neither a number nor one of " + names);
}

bool is_separator(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0 || c == ':' || c == ',';
}

} // namespace

int message_limit(channel via) {
    return via == channel::tcp ? protocol::tcp_message_limit : protocol::message_capacity;
}

message_bytes make_display_alert(const display_alert_settings &settings, channel via) {
    namespace layout = protocol::display_alert;
    message_bytes message = start_message(message_type::display_alert, layout::text);
    message[layout::flag] = to_byte(settings.flag, "the flag");
    const int trailer = settings.turnout ? layout::trailer_size : 0;
    append_text(message, settings.text, "the text", via, trailer);
    put_number(message, layout::text_length, static_cast<int>(settings.text.size()), "the length");
    if (settings.turnout) {
        const int position = static_cast<int>(message.size());
        message.resize(message.size() + layout::trailer_size);
        put_number(message, position, *settings.turnout, "the turnout time");
    }
    return message;
}

message_bytes make_detail_alert(const detail_alert_settings &settings, channel via) {
    namespace layout = protocol::detail_alert;
    if (settings.units.size() > static_cast<std::size_t>(layout::unit_slots)) {
        throw usage_failure("there are " + std::to_string(settings.units.size()) +
                            " units; a message holds at most 16");
    }
    message_bytes message = start_message(message_type::detail_alert, layout::text);
    message[layout::flag] = to_byte(settings.flag, "the flag");
    int slot = 0;
    for (const called_unit &unit : settings.units) {
        put_unit(message, slot++, unit);
    }
    put_number(message, layout::turnout_end, settings.turnout_end, "the turnout time");
    put_number(message, layout::turnout_zero, settings.turnout_zero, "the timer's zero");
    message[layout::turnout_reverse] = to_byte(settings.turnout_reverse, "the reverse flag");
    put_number(message, layout::text_length, static_cast<int>(settings.text.size()), "the length");
    append_text(message, settings.text, "the text", via);
    return message;
}

std::string unescape(const std::string &typed) {
    std::string text;
    for (std::size_t i = 0; i < typed.size(); ++i) {
        const char next = i + 1 < typed.size() ? typed[i + 1] : '\0';
        if (typed[i] == '\\' && (next == 'n' || next == '\\')) {
            text += next == 'n' ? '\n' : '\\';
            ++i;
        } else {
            text += typed[i];
        }
    }
    return text;
}

called_unit parse_unit(const std::string &text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return {text, 1};
    }
    return {text.substr(0, colon), parse_color(text.substr(colon + 1), text)};
}

message_bytes make_hdtv_alert(int turnout) {
    namespace layout = protocol::hdtv_alert;
    message_bytes message =
        start_message(message_type::hdtv_alert, 1 + layout::turnout_timer_from_end);
    put_number(message, 1, turnout, "the turnout time");
    return message;
}

message_bytes make_rollcall_request() {
    return start_message(message_type::rollcall_request);
}

message_bytes make_reboot() {
    return start_message(message_type::reboot);
}

message_bytes make_stop_turnout() {
    return start_message(message_type::stop_turnout);
}

message_bytes make_set_date(const std::string &date, channel via) {
    if (date.empty()) {
        throw usage_failure("the date is empty");
    }
    return make_text_message(message_type::set_date, date, "the date", via);
}

message_bytes make_set_page_address(const std::string &address, channel via) {
    return make_text_message(message_type::set_page_address, address, "the address", via);
}

message_bytes make_set_map_address(const std::string &address, channel via) {
    return make_text_message(message_type::set_map_address, address, "the address", via);
}

message_bytes make_hdtv_settings(int rotation) {
    if (rotation < 0 || rotation > 270 || rotation % 90 != 0) {
        throw usage_failure("the rotation has to be 0, 90, 180 or 270 degrees");
    }
    return {static_cast<std::uint8_t>(message_type::hdtv_settings),
            static_cast<std::uint8_t>(rotation / 90)};
}

message_bytes make_play_audio(const clip_settings &settings, channel via) {
    if (!is_clip_address(settings.address)) {
        throw usage_failure(
            "a clip's address has to end in \".wav\" or \".raw\", and must not contain it anywhere "
            "else");
    }
    std::string members = member("play_audio", settings.address);
    for (const auto &[key, value] : {std::pair{"device", settings.device},
                                     {"volume", settings.volume},
                                     {"channels", settings.channels},
                                     {"rate", settings.rate},
                                     {"sample_format", settings.sample_format}}) {
        if (value) {
            members += "," + member(key, *value);
        }
    }
    return make_json_control(members, via);
}

message_bytes make_set_gateway(const std::string &address, channel via) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
        throw usage_failure(quoted(address) + " is not an IPv4 address such as 10.87.33.20");
    }
    return make_json_control(member("comm_gw", address), via);
}

message_bytes parse_hex(const std::string &text) {
    message_bytes bytes;
    int high = -1;
    for (const char c : text) {
        if (is_separator(c) && high < 0) {
            continue;
        }
        if (is_separator(c)) {
            throw usage_failure("a hexadecimal byte needs two digits");
        }
        const int digit = digit_value(c);
        if (digit < 0) {
            throw usage_failure(std::string("'") + c + "' is not a hexadecimal digit");
        }
        if (high >= 0) {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
        }
        high = high < 0 ? digit : -1;
    }
    if (high >= 0) {
        throw usage_failure("a hexadecimal byte needs two digits");
    }
    return bytes;
}
