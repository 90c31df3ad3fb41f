#include "tools/gatewayctl/describe.h"

#include "bstrlib/bstr_owner.h"
#include "hdtv/config_store.h"
#include "hdtv/messages.h"
#include "hdtv/protocol.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <strings.h>

namespace {

using protocol::message_type;

constexpr int shown_bytes = 8; // of a field, in hexadecimal

std::string seconds_text(int seconds) {
    return std::to_string(seconds) + " s";
}

/// Builds the description of a message.
struct reading {
    gateway_message message;
    channel via = channel::tcp;
    description described;

    int size() const {
        return message.size();
    }

    // As much of the field as the message contains.
    void add(int offset, int wanted, const std::string &name, const std::string &value) {
        const int there = std::clamp(size() - offset, 0, wanted);
        if (there > 0) {
            described.fields.push_back({offset, there, name, value});
        }
    }

    // A text that runs to its first zero byte or to the end.
    void add_text(int offset, const std::string &name) {
        const int length = static_cast<int>(std::strlen(message.text(offset)));
        add(offset, length, name, quoted(message.text(offset)));
        if (offset + length < size()) {
            add(offset + length, size() - offset - length, "not read", "");
            fault("a zero byte at offset " + std::to_string(offset + length) + " ends the " + name);
        }
    }

    void does(const std::string &effect) {
        described.effects.push_back(effect);
    }

    void fault(const std::string &what) {
        described.faults.push_back(what);
    }

    void expect_size(int least) {
        if (size() < least) {
            fault("it has " + std::to_string(size()) + " of at least " +
                  bytes_text(static_cast<std::size_t>(least)) +
                  "; missing bytes are read as zeros");
        }
    }

    void expect_end(int offset) {
        if (size() > offset) {
            add(offset, size() - offset, "not read", "");
            fault("nothing is read from offset " + std::to_string(offset) + " on");
        }
    }

    // Call last: replaces all other effects, because a message on the wrong channel does nothing
    // else.
    void expect_channel() {
        if (!counts_on(message.byte(0), via)) {
            const std::string other = via == channel::udp ? "TCP" : "UDP";
            described.effects = {"does nothing: this message works over " + other + " only"};
            fault("over " + std::string(via == channel::udp ? "UDP" : "TCP") + " it has no effect");
        }
    }
};

void add_flag(reading &r, int offset) {
    const int flag = r.message.byte(offset);
    r.add(offset, 1, "alert flag",
          std::to_string(flag) + (flag == protocol::alert_on ? ", alert on" : ", not on"));
}

// All alerts start and end here.
void describe_alert_state(reading &r, int flag, bool is_text_empty, const char *idle_document) {
    r.does("returns the browser to the station page if it shows another");
    if (flag != protocol::alert_on) {
        r.does(std::string("shows ") + idle_document + " if no alert is active, otherwise nothing");
    } else if (is_text_empty) {
        r.does("ends the alert and hands the television back");
    } else {
        r.does("starts an alert, waking and taking over the television; if one is active, "
               "shows the new text instead");
    }
}

void describe_display_alert(reading &r) {
    namespace layout = protocol::display_alert;
    const display_alert alert = read_display_alert(r.message);
    const int length = r.message.number(layout::text_length);
    const int trailer = layout::text + length;
    r.expect_size(layout::text);
    add_flag(r, layout::flag);
    r.add(layout::flag + 1, 2, "not read", "");
    r.add(layout::text_length, 2, "text length", std::to_string(length));
    if (alert.turnout) {
        r.add(layout::text, length, "text", quoted(alert.text));
        if (alert.text.size() < static_cast<std::size_t>(length)) {
            r.fault("a zero byte ends the text before its length does");
        }
        r.add(trailer, layout::trailer_size, "turnout timer", seconds_text(*alert.turnout));
        r.does("sets the turnout timer to " + seconds_text(*alert.turnout));
    } else {
        r.add_text(layout::text, "text");
        r.does("leaves the turnout timer as it is");
        if (r.size() >= layout::text && r.size() != trailer) {
            r.fault("the text length is " + std::to_string(length) + ", but " +
                    std::to_string(r.size() - layout::text) +
                    " bytes follow: the length is ignored, and there is no turnout timer");
        }
    }
    describe_alert_state(r, alert.flag, alert.text.empty(), "the text");
}

void describe_reboot(reading &r) {
    r.does("reboots the board");
    r.expect_end(1);
}

void describe_hdtv_alert(reading &r) {
    namespace layout = protocol::hdtv_alert;
    const hdtv_alert alert = read_hdtv_alert(r.message);
    if (!alert.turnout) {
        r.does("does nothing");
        r.expect_size(layout::turnout_timer_from_end);
        return;
    }
    const int timer = r.size() - layout::turnout_timer_from_end;
    r.add(1, timer - 1, "not read", "");
    r.add(timer, 2, "turnout timer", seconds_text(*alert.turnout));
    r.add(timer + 2, layout::turnout_timer_from_end - 2, "not read", "");
    r.does("sets the turnout timer to " + seconds_text(*alert.turnout) + ", and shows nothing");
    if (timer == 0) {
        r.fault("the turnout timer is taken from the type byte and the one after it");
    }
}

void describe_set_date(reading &r) {
    const std::string_view date = read_set_date(r.message).date;
    r.add_text(protocol::set_date::text, "date");
    r.does("runs date -s " + quoted(date) + " and waits until it ends");
    if (date.empty()) {
        r.fault("the date is empty");
    }
}

void describe_stop_turnout(reading &r) {
    r.does("tells the page to stop the turnout timer; the alert stays active");
    r.expect_end(1);
}

void describe_set_page_address(reading &r) {
    r.add_text(protocol::set_page_address::text, "address");
    if (read_set_page_address(r.message).address.empty()) {
        r.does("stops the browser until an alert starts it again");
    } else {
        r.does("shows that page until an alert brings the station page back");
    }
}

void describe_hdtv_settings(reading &r) {
    constexpr int turns_that_count = 3;
    namespace layout = protocol::hdtv_settings;
    const int turns = read_hdtv_settings(r.message).quarter_turns;
    r.expect_size(layout::quarter_turns + 1);
    r.add(layout::quarter_turns, 1, "quarter turns", std::to_string(turns));
    r.does("rotates the page by " + std::to_string(90 * turns) + " degrees");
    r.does("stores \"" + std::to_string(turns <= turns_that_count ? 90 * turns : 0) +
           "\" in the configuration, if the value differs");
    if (turns > turns_that_count) {
        r.fault("more than three quarter turns are stored as \"0\"");
    }
    r.expect_end(layout::quarter_turns + 1);
}

void describe_unit(reading &r, const alerted_unit &unit, int slot) {
    namespace layout = protocol::detail_alert;
    const auto &[name, color] = unit;
    const int offset = layout::unit_names + layout::unit_name_size * slot;
    const std::string label = "unit " + std::to_string(slot + 1);
    if (color == 0 && name.empty()) {
        return;
    }
    r.add(layout::unit_colors + slot, 1, label + ", color", std::to_string(color));
    r.add(offset, layout::unit_name_size, label + ", name", quoted(name));
    if (color == 0) {
        r.fault(label + " has a name but color 0: its slot counts as empty");
    } else if (name.empty()) {
        r.fault(label + " has a color but no name");
    }
    if (r.message.byte(offset + layout::unit_name_size - 1) != 0) {
        r.fault(label + ": the name has no terminating zero and is cut to 31 bytes");
    }
    if (color != 0 && name.find('"') != std::string_view::npos) {
        r.fault(label + ": a quotation mark in a name makes the alert document unreadable");
    }
}

void describe_detail_length(reading &r, int length, int real_length) {
    if ((length == 0) != (real_length == 0)) {
        r.fault(length == 0 ? "the text length is 0, so the text counts as empty"
                            : "the text is empty but its length is not 0, so it counts as a text");
    } else if (length != real_length) {
        r.fault("the text length is " + std::to_string(length) + ", and the text has " +
                std::to_string(real_length) + " bytes: all of them are shown");
    }
}

void describe_detail_alert(reading &r) {
    namespace layout = protocol::detail_alert;
    const detail_alert alert = read_detail_alert(r.message);
    r.expect_size(layout::text);
    add_flag(r, layout::flag);
    r.add(layout::flag + 1, 2, "not read", "");
    for (int slot = 0; slot < layout::unit_slots; ++slot) {
        describe_unit(r, alert.units[static_cast<std::size_t>(slot)], slot);
    }
    std::ranges::stable_sort(r.described.fields, {}, &field::offset);
    r.add(layout::turnout_end, 2, "turnout end", seconds_text(alert.turnout_end));
    r.add(layout::turnout_zero, 2, "turnout zero", seconds_text(alert.turnout_zero));
    r.add(layout::turnout_reverse, 1, "turnout reverse", std::to_string(alert.turnout_reverse));
    r.add(layout::text_length, 2, "text length", std::to_string(alert.text_length));
    r.add_text(layout::text, "text");
    describe_detail_length(r, alert.text_length, static_cast<int>(alert.text.size()));
    r.does("sets the turnout timer to " + seconds_text(alert.turnout_end));
    describe_alert_state(r, alert.flag, alert.text_length == 0, "an empty alert");
    r.does("keeps the message for a map address that may follow");
}

bool is_web_address(const std::string &address) {
    return strncasecmp(address.c_str(), "http://", 7) == 0 ||
           strncasecmp(address.c_str(), "https://", 8) == 0;
}

void describe_set_map_address(reading &r) {
    const std::string address(read_set_map_address(r.message).address);
    r.add_text(protocol::set_map_address::text, "address");
    r.does("shows the map with the last detail alert if an alert is active, otherwise nothing");
    if (!address.empty() && !is_web_address(address)) {
        r.fault("the station page follows http and https addresses only");
    }
    if (address.find('"') != std::string::npos) {
        r.fault("a quotation mark in the address makes the alert document unreadable");
    }
}

void describe_json_control(reading &r) {
    r.add_text(protocol::json_control::text, "object");
    r.described.fields.erase(r.described.fields.begin()); // the type is its first character
    const std::string_view text = read_json_control(r.message).text;
    const bstr_owner json(blk2bstr(text.data(), static_cast<int>(text.size())));
    bool is_known = false;
    for (const char *key :
         {"play_audio", "device", "volume", "channels", "rate", "sample_format", "comm_gw"}) {
        const bstr_owner value(get_from_json(json.get(), key));
        if (value) {
            const std::string shown = quoted(bstr_text(value.get()));
            is_known =
                is_known || std::strcmp(key, "play_audio") == 0 || std::strcmp(key, "comm_gw") == 0;
            r.does(std::strcmp(key, "play_audio") == 0 ? "fetches and plays " + shown
                   : std::strcmp(key, "comm_gw") == 0  ? "takes " + shown + " as its gateway"
                                                       : std::string("with ") + key + " " + shown);
        }
    }
    if (!is_known) {
        r.does("does nothing");
        r.fault("it has neither \"play_audio\" nor \"comm_gw\" in the form \"key\":\"value\"");
    }
}

void describe_rollcall_request(reading &r) {
    r.does("answers to port 5000 of the sender, and asks for the date and the settings if it "
           "lacks");
    r.expect_end(1);
}

struct message_kind {
    message_type type;
    const char *name;
    void (*describe)(reading &);
};

constexpr message_kind message_kinds[] = {
    {message_type::rollcall_request, "roll-call request", describe_rollcall_request},
    {message_type::display_alert, "display alert", describe_display_alert},
    {message_type::reboot, "reboot", describe_reboot},
    {message_type::hdtv_alert, "hdtv alert", describe_hdtv_alert},
    {message_type::set_date, "set date", describe_set_date},
    {message_type::stop_turnout, "stop turnout", describe_stop_turnout},
    {message_type::set_page_address, "set page address", describe_set_page_address},
    {message_type::hdtv_settings, "hdtv settings", describe_hdtv_settings},
    {message_type::detail_alert, "detail alert", describe_detail_alert},
    {message_type::set_map_address, "set map address", describe_set_map_address},
    {message_type::json_control, "JSON control", describe_json_control},
};

void describe_unknown(reading &r) {
    r.add(1, r.size() - 1, "not read", "");
    r.does("does nothing");
    r.fault("no message has type " + std::to_string(r.message.byte(0)));
}

constexpr message_kind unknown_kind = {message_type{}, "unknown", describe_unknown};

const message_kind &kind_of(std::uint8_t type) {
    for (const message_kind &kind : message_kinds) {
        if (static_cast<std::uint8_t>(kind.type) == type) {
            return kind;
        }
    }
    return unknown_kind;
}

struct record_kind {
    std::uint8_t code;
    int size;
    const char *name;
};

constexpr record_kind record_kinds[] = {
    {protocol::rollcall_reply::code, protocol::rollcall_reply::size, "roll-call reply"},
    {protocol::request::set_date, protocol::request::size, "set-date request"},
    {protocol::request::hdtv_settings, protocol::request::size, "settings request"},
};

void describe_reply(description &described, std::span<const std::uint8_t> bytes) {
    namespace layout = protocol::rollcall_reply;
    const int fixed = bytes[layout::fixed_byte];
    described.fields.push_back({layout::fixed_byte, 1, "fixed byte", std::to_string(fixed)});
    described.fields.push_back(
        {layout::version_byte, 1, "version", std::to_string(bytes[layout::version_byte])});
    if (fixed != layout::fixed_byte_value) {
        described.faults.push_back("byte 7 is always " + std::to_string(layout::fixed_byte_value));
    }
}

std::string shortened_hex(std::span<const std::uint8_t> bytes, const field &part) {
    const auto start = static_cast<std::size_t>(part.offset);
    const int count = std::min(part.size, shown_bytes);
    return to_hex(bytes.subspan(start, static_cast<std::size_t>(count))) +
           (part.size > shown_bytes ? " .." : "");
}

std::string field_line(const field &part, const std::string &hex) {
    char start[128];
    std::snprintf(start, sizeof start, "  %5d  %-26s  %-18s  ", part.offset, hex.c_str(),
                  part.name.c_str());
    std::string line = start + part.value;
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

std::string list(const char *heading, const std::vector<std::string> &lines) {
    std::string text = lines.empty() ? "" : std::string(heading) + "\n";
    for (const std::string &line : lines) {
        text += "  - " + line + "\n";
    }
    return text;
}

} // namespace

description describe_message(std::span<const std::uint8_t> bytes, channel via) {
    reading r;
    r.via = via;
    const int taken = std::min(static_cast<int>(std::min<std::size_t>(bytes.size(), 0x10000)),
                               message_limit(via));
    std::copy_n(bytes.begin(), taken, r.message.receive_area());
    r.message.set_size(taken);
    const message_kind &kind = kind_of(r.message.byte(0));
    r.described.title = std::string(kind.name) + ", " + bytes_text(bytes.size()) + " over " +
                        (via == channel::tcp ? "TCP" : "UDP");
    if (bytes.empty()) {
        r.does("does nothing");
        r.fault("the message is empty");
        return r.described;
    }
    r.add(0, 1, "type", std::to_string(r.message.byte(0)) + ", " + kind.name);
    kind.describe(r);
    if (&kind != &unknown_kind) {
        r.expect_channel();
    }
    if (bytes.size() > static_cast<std::size_t>(taken)) {
        r.fault("a unit takes " + std::to_string(taken) + " bytes at most; the rest is lost");
    }
    return r.described;
}

description describe_record(std::span<const std::uint8_t> bytes) {
    description described;
    for (const record_kind &kind : record_kinds) {
        if (!bytes.empty() && bytes[0] == kind.code &&
            bytes.size() == static_cast<std::size_t>(kind.size)) {
            described.title = std::string(kind.name) + ", a record";
            described.fields = {
                {0, 1, "code", std::to_string(kind.code) + ", " + kind.name},
                {1, protocol::hardware_address_size, "hardware address",
                 hardware_address_text(bytes.subspan(1, protocol::hardware_address_size))}};
            if (kind.code == protocol::rollcall_reply::code) {
                describe_reply(described, bytes);
            }
            return described;
        }
    }
    described.title = "unknown record, " + bytes_text(bytes.size());
    described.faults.emplace_back(
        "a record is a code (2, 39 or 47), a hardware address of 6 bytes, "
        "and for code 2 two more bytes");
    return described;
}

std::string to_text(const description &described, std::span<const std::uint8_t> bytes) {
    std::string text = described.title + "\n";
    for (const field &part : described.fields) {
        text += field_line(part, shortened_hex(bytes, part));
    }
    return text + list("What a unit does with it:", described.effects) +
           list("What is wrong with it:", described.faults);
}
