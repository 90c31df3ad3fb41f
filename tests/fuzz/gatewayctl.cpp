// gatewayctl: what it says about any message or record, the messages that it makes of any values, and
// the inventories that it reads. Nothing is thrown but refusals.

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/describe.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/inventory.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/page.h"
#include "tools/gatewayctl/records.h"
#include "tools/gatewayctl/text.h"

#include "fuzz_target.h"

#include <optional>
#include <string>
#include <vector>

namespace {

// Without a byte that a terminal takes for a command.
void expect_printable(const std::string &text) {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        REQUIRE((byte >= ' ' && byte != 0x7f) || c == '\n');
    }
}

// What is to be shown on one line.
void expect_line(const std::string &text) {
    expect_printable(text);
    REQUIRE(text.find('\n') == std::string::npos);
}

void expect_description(const description &described, const message_bytes &bytes) {
    expect_line(described.title);
    // The shortest hdtv alert has its timer where its type is.
    const bool is_shortest_hdtv_alert = bytes.size() == 5 && bytes[0] == 38;
    int end = 0;
    for (const field &part : described.fields) {
        expect_line(part.name + part.value);
        REQUIRE((part.offset >= end || is_shortest_hdtv_alert) && part.size > 0);
        end = part.offset + part.size;
        REQUIRE(end <= static_cast<int>(bytes.size()));
    }
    for (const auto *lines : {&described.effects, &described.faults}) {
        for (const std::string &line : *lines) {
            REQUIRE(!line.empty());
            expect_line(line);
        }
    }
    expect_printable(to_text(described, bytes));
}

void describe_bytes(const message_bytes &bytes) {
    for (const channel via : {channel::tcp, channel::udp}) {
        expect_description(describe_message(bytes, via), bytes);
    }
    expect_description(describe_record(bytes), bytes);
    const auto record = parse_record(bytes);
    // The description may know more: that byte 7 is wrong.
    REQUIRE(record.has_value() != describe_record(bytes).title.starts_with("unknown record"));
    if (record) {
        REQUIRE(record->hardware_address.size() == 17 && (bytes.size() == 7 || bytes.size() == 9));
    }
}

// What the function makes; none if it refuses to.
template <class function> auto made_by(function &&make) -> std::optional<decltype(make())> {
    try {
        return make();
    } catch (const usage_failure &refusal) {
        expect_line(printable(refusal.what()));
        return std::nullopt;
    }
}

channel any_channel(fuzz_input &input) {
    return input.byte() % 2 == 0 ? channel::tcp : channel::udp;
}

std::string upto_zero(const std::string &text) {
    return text.c_str();
}

gateway_message received(const message_bytes &bytes) {
    gateway_message message;
    std::copy(bytes.begin(), bytes.end(), message.receive_area());
    message.set_size(static_cast<int>(bytes.size()));
    return message;
}

void expect_message(const std::optional<message_bytes> &made, channel via) {
    if (made) {
        REQUIRE(static_cast<int>(made->size()) <= message_limit(via));
        describe_bytes(*made);
    }
}

int any_number(fuzz_input &input) {
    const int chosen = input.byte();
    return chosen < 0xF0 ? input.number16() : static_cast<int>(input.number32());
}

void make_display(fuzz_input &input) {
    const channel via = any_channel(input);
    display_alert_settings settings;
    settings.flag = input.byte();
    if (input.byte() % 2 == 0) {
        settings.turnout = any_number(input);
    }
    settings.text = input.long_text();
    const auto made = made_by([&] { return make_display_alert(settings, via); });
    expect_message(made, via);
    if (made) {
        const gateway_message message = received(*made);
        const display_alert alert = read_display_alert(message);
        REQUIRE_SAME(alert.text, upto_zero(settings.text));
        REQUIRE(alert.turnout == settings.turnout && alert.flag == settings.flag);
    }
}

void make_detail(fuzz_input &input) {
    const channel via = any_channel(input);
    detail_alert_settings settings;
    settings.flag = input.byte();
    settings.turnout_end = any_number(input);
    settings.turnout_zero = any_number(input);
    settings.turnout_reverse = input.byte();
    for (int count = input.byte() % 18; count > 0; --count) {
        const std::string typed = input.text(input.byte() % 40U);
        const auto unit = made_by([&] { return parse_unit(typed); });
        settings.units.push_back(unit.value_or(called_unit{"E1", 2}));
    }
    settings.text = input.long_text();
    const auto made = made_by([&] { return make_detail_alert(settings, via); });
    expect_message(made, via);
    if (!made) {
        return;
    }
    const gateway_message message = received(*made);
    const detail_alert alert = read_detail_alert(message);
    REQUIRE_SAME(alert.text, upto_zero(settings.text));
    REQUIRE(alert.turnout_end == settings.turnout_end);
    for (std::size_t i = 0; i < settings.units.size(); ++i) {
        REQUIRE_SAME(alert.units[i].name, upto_zero(settings.units[i].name));
        REQUIRE(alert.units[i].color == settings.units[i].color);
    }
}

void make_text_messages(fuzz_input &input) {
    const channel via = any_channel(input);
    const std::string text = unescape(input.all());
    for (const auto make : {make_set_date, make_set_page_address, make_set_map_address}) {
        const auto made = made_by([&] { return make(text, via); });
        expect_message(made, via);
        REQUIRE(!made || std::string(made->begin() + 1, made->end()) == text);
    }
    expect_message(made_by([&] { return make_set_gateway(text, via); }), via);
    const auto page = made_by([&] { return page_address({text, true, false, false, false}); });
    if (page) {
        expect_line(*page);
    }
}

void make_clip(fuzz_input &input) {
    const channel via = any_channel(input);
    clip_settings settings;
    for (auto *value : {&settings.device, &settings.volume, &settings.channels, &settings.rate,
                        &settings.sample_format}) {
        if (input.byte() % 2 == 0) {
            *value = input.short_text();
        }
    }
    settings.address = input.all() + (via == channel::tcp ? ".wav" : "");
    expect_message(made_by([&] { return make_play_audio(settings, via); }), via);
}

void make_numbers(fuzz_input &input) {
    const int number = any_number(input);
    expect_message(made_by([&] { return make_hdtv_alert(number); }), channel::tcp);
    expect_message(made_by([&] { return make_hdtv_settings(number); }), channel::tcp);
}

void read_hex(fuzz_input &input) {
    const std::string typed = input.all();
    const auto bytes = made_by([&] { return parse_hex(typed); });
    if (bytes) {
        describe_bytes(*bytes);
        const auto again = made_by([&] { return parse_hex(to_hex(*bytes)); });
        REQUIRE(again == bytes);
    }
}

void show_text(fuzz_input &input) {
    const std::string text = input.all();
    expect_line(quoted(text));
    expect_line(printable(text));
    REQUIRE(printable(printable(text)) == printable(text));
}

void read_message(fuzz_input &input) {
    const std::string bytes = input.all();
    describe_bytes(message_bytes(bytes.begin(), bytes.end()));
}

// What is read is written as lines that are read again.
void read_units(fuzz_input &input) {
    const std::string text = input.all();
    const auto units = made_by([&] { return parse_inventory(text, "units"); });
    if (!units) {
        return;
    }
    std::string written;
    for (const inventory_unit &unit : *units) {
        expect_line(printable(unit.name));
        expect_line(unit.address + unit.hardware_address);
        check_address(unit.address);
        written += to_text(unit) + "\n";
    }
    const std::vector<inventory_unit> again = parse_inventory(written, "written");
    REQUIRE(again.size() == units->size());
    for (std::size_t i = 0; i < again.size(); ++i) {
        REQUIRE_SAME(to_text(again[i]), to_text((*units)[i]));
        REQUIRE_SAME(again[i].group, (*units)[i].group);
        REQUIRE_SAME(again[i].comment, (*units)[i].comment);
    }
}

constexpr void (*actions[])(fuzz_input &) = {read_message,       make_display, make_detail,
                                             make_text_messages, make_clip,    make_numbers,
                                             read_hex,           show_text,    read_units};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz_input input(data, size);
    actions[input.byte() % std::size(actions)](input);
    return 0;
}
