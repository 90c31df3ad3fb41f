#include "hdtv/message.h"
#include "hdtv/protocol.h"
#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/describe.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/records.h"
#include "tools/gatewayctl/text.h"

#include "wire.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

using bytes = message_bytes;

bytes operator+(bytes left, const std::string &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

bytes text_bytes(const std::string &text) {
    return bytes() + text;
}

// What the function refuses to do, in its own words.
template <class function> std::string refusal(function &&make) {
    try {
        make();
    } catch (const usage_failure &failure) {
        return failure.what();
    }
    return "";
}

detail_alert_settings detail(const std::string &text) {
    detail_alert_settings settings;
    settings.text = text;
    return settings;
}

description tcp(const bytes &message) {
    return describe_message(message, channel::tcp);
}

std::string value_of(const description &described, const std::string &name) {
    for (const field &part : described.fields) {
        if (part.name == name) {
            return part.value;
        }
    }
    return "no such field";
}

bool has(const std::vector<std::string> &lines, const std::string &words) {
    return std::ranges::any_of(
        lines, [&words](const std::string &line) { return line.find(words) != std::string::npos; });
}

// Making messages.

TEST(messages, short_ones_are_their_type_alone) {
    EXPECT_EQ(make_rollcall_request(), bytes({1}));
    EXPECT_EQ(make_reboot(), bytes({32}));
    EXPECT_EQ(make_stop_turnout(), bytes({46}));
}

TEST(messages, texts_follow_their_type) {
    EXPECT_EQ(make_set_date("now", channel::tcp), bytes({40}) + "now");
    EXPECT_EQ(make_set_page_address("http://x", channel::tcp), bytes({48}) + "http://x");
    EXPECT_EQ(make_set_page_address("", channel::tcp), bytes({48}));
    EXPECT_EQ(make_set_map_address("http://m", channel::tcp), bytes({52}) + "http://m");
}

TEST(messages, display_alert_has_a_trailer_only_with_a_turnout_time) {
    EXPECT_EQ(make_display_alert({"FIRE", 1, {}}, channel::tcp),
              bytes({3, 1, 0, 0, 0, 4}) + "FIRE");
    EXPECT_EQ(make_display_alert({"FIRE", 0, 0x1234}, channel::tcp),
              bytes({3, 0, 0, 0, 0, 4}) + "FIRE\x12\x34");
}

TEST(messages, hdtv_alert_holds_the_time_five_bytes_before_its_end) {
    EXPECT_EQ(make_hdtv_alert(0x0102), bytes({38, 1, 2, 0, 0, 0}));
}

TEST(messages, detail_alert_puts_units_into_slots) {
    detail_alert_settings settings = detail("FIRE");
    settings.units = {{"E1", 2}, {"LADDER", 255}};
    settings.turnout_end = 0x0102;
    settings.turnout_zero = 0x0304;
    settings.turnout_reverse = 1;
    const bytes message = make_detail_alert(settings, channel::tcp);
    ASSERT_EQ(message.size(), 543U);
    EXPECT_EQ(bytes(message.begin(), message.begin() + 7), bytes({51, 1, 0, 0, 2, 255, 0}));
    EXPECT_EQ(bytes(message.begin() + 20, message.begin() + 23),
              text_bytes("E1") + std::string(1, 0));
    EXPECT_EQ(bytes(message.begin() + 52, message.begin() + 58), text_bytes("LADDER"));
    EXPECT_EQ(bytes(message.begin() + 532, message.end()), bytes({1, 2, 3, 4, 1, 0, 4}) + "FIRE");
}

TEST(messages, rotation_is_sent_in_quarter_turns) {
    EXPECT_EQ(make_hdtv_settings(0), bytes({49, 0}));
    EXPECT_EQ(make_hdtv_settings(270), bytes({49, 3}));
    for (const int degrees : {-90, 45, 360}) {
        EXPECT_EQ(refusal([&] { make_hdtv_settings(degrees); }),
                  "a page is turned by 0, 90, 180 or 270 degrees");
    }
}

TEST(messages, control_messages_are_flat_objects_of_strings) {
    EXPECT_EQ(make_set_gateway("10.87.33.20", channel::tcp),
              text_bytes("{\"comm_gw\":\"10.87.33.20\"}"));
    clip_settings clip;
    clip.address = "http://x/a.RAW";
    clip.device = "headphones";
    clip.rate = "8000";
    EXPECT_EQ(make_play_audio(clip, channel::tcp),
              text_bytes("{\"play_audio\":\"http://x/a.RAW\",\"device\":\"headphones\","
                         "\"rate\":\"8000\"}"));
}

TEST(messages, clip_that_the_unit_would_not_play_is_refused) {
    for (const char *address : {"", "http://x/a.mp3", "http://x.wav/a.wav", "wav", "x.wav?y"}) {
        clip_settings clip;
        clip.address = address;
        EXPECT_NE(refusal([&] { make_play_audio(clip, channel::tcp); }), "") << address;
    }
}

TEST(messages, quotation_mark_in_a_control_value_is_refused) {
    clip_settings clip;
    clip.address = "http://x/a.wav";
    clip.volume = "1\"";
    EXPECT_EQ(refusal([&] { make_play_audio(clip, channel::tcp); }),
              "a quotation mark cannot be sent in \"volume\"");
}

TEST(messages, gateway_that_is_no_address_is_refused) {
    for (const char *address : {"", "10.1", "gateway", "10.87.33.256", "10.87.33.20 "}) {
        EXPECT_NE(refusal([&] { make_set_gateway(address, channel::tcp); }), "") << address;
    }
}

TEST(messages, longest_texts_fill_a_message_and_one_byte_more_is_refused) {
    const auto fits = [](int size, channel via, auto make, const std::string &words) {
        EXPECT_EQ(make(std::string(static_cast<std::size_t>(size), 'x')).size(),
                  static_cast<std::size_t>(message_limit(via)));
        EXPECT_EQ(refusal([&] { make(std::string(static_cast<std::size_t>(size) + 1, 'x')); }),
                  words + " has " + std::to_string(size + 1) + " bytes; over " +
                      (via == channel::tcp ? "TCP" : "UDP") + " it may have at most " +
                      std::to_string(size));
    };
    for (const channel via : {channel::tcp, channel::udp}) {
        const int more = via == channel::tcp ? 0 : 1;
        fits(
            4089 + more, via,
            [&](const std::string &text) {
                return make_display_alert({text, 1, {}}, via);
            },
            "the text");
        fits(
            4087 + more, via,
            [&](const std::string &text) {
                return make_display_alert({text, 1, 5}, via);
            },
            "the text");
        fits(
            3556 + more, via,
            [&](const std::string &text) { return make_detail_alert(detail(text), via); },
            "the text");
        fits(
            4094 + more, via, [&](const std::string &text) { return make_set_date(text, via); },
            "the date");
        fits(
            4094 + more, via,
            [&](const std::string &text) { return make_set_map_address(text, via); },
            "the address");
    }
}

TEST(messages, numbers_that_their_fields_cannot_hold_are_refused) {
    EXPECT_EQ(refusal([] { make_hdtv_alert(65536); }),
              "the turnout time is 65536, and a message holds 0 to 65535 seconds");
    EXPECT_NE(refusal([] { make_hdtv_alert(-1); }), "");
    EXPECT_EQ(refusal([] {
                  make_display_alert({"x", 256, {}}, channel::tcp);
              }),
              "the flag is 256, and a byte holds 0 to 255");
    EXPECT_EQ(refusal([] { make_set_date("", channel::tcp); }), "the date is empty");
}

TEST(messages, units_that_do_not_fit_are_refused) {
    const auto with = [](std::vector<called_unit> units) {
        return refusal([&units] {
            detail_alert_settings settings = detail("x");
            settings.units = units;
            make_detail_alert(settings, channel::tcp);
        });
    };
    EXPECT_EQ(with({{std::string(31, 'x'), 1}}), "");
    EXPECT_EQ(with({{std::string(32, 'x'), 1}}), "the unit's name \"" + std::string(32, 'x') +
                                                     "\" has 32 bytes; it may have at most 31");
    EXPECT_EQ(with({{"", 1}}), "a unit needs a name");
    EXPECT_EQ(with({{"E1", 0}}), "the colour of E1 is 0; colours are 1 to 16, and at most 255");
    EXPECT_NE(with({{"E1", 256}}), "");
    EXPECT_EQ(with(std::vector<called_unit>(16, {"E1", 1})), "");
    EXPECT_EQ(with(std::vector<called_unit>(17, {"E1", 1})),
              "there are 17 units; a message holds 16");
}

TEST(messages, unit_is_a_name_with_a_colour) {
    EXPECT_EQ(parse_unit("E1:16").name, "E1");
    EXPECT_EQ(parse_unit("E1:16").color, 16);
    EXPECT_EQ(parse_unit("A:B:3").name, "A:B");
    EXPECT_EQ(parse_unit("E1").color, 1);
    for (const char *text : {"E1:", "E1:red", "E1:-1", "E1:1x", "E1:9999"}) {
        EXPECT_NE(refusal([&] { parse_unit(text); }), "") << text;
    }
}

TEST(messages, typed_texts_know_new_lines) {
    EXPECT_EQ(unescape("a\\nb"), "a\nb");
    EXPECT_EQ(unescape("a\\\\nb"), "a\\nb");
    EXPECT_EQ(unescape("\\t\\"), "\\t\\");
    EXPECT_EQ(unescape(""), "");
}

TEST(messages, hexadecimal_bytes_may_be_separated) {
    EXPECT_EQ(parse_hex("33 01:aF,00\n"), bytes({0x33, 1, 0xaf, 0}));
    EXPECT_EQ(parse_hex("3301"), bytes({0x33, 1}));
    EXPECT_EQ(parse_hex(""), bytes());
    for (const char *text : {"3", "3 3", "333", "3g", "0x33"}) {
        EXPECT_NE(refusal([&] { parse_hex(text); }), "") << text;
    }
}

// Explaining them.

TEST(describe, names_every_type_that_the_service_knows) {
    for (const auto &[type, name] : {std::pair<int, const char *>{1, "roll-call request"},
                                     {3, "display alert"},
                                     {32, "reboot"},
                                     {38, "hdtv alert"},
                                     {40, "set date"},
                                     {46, "stop turnout"},
                                     {48, "set page address"},
                                     {49, "hdtv settings"},
                                     {51, "detail alert"},
                                     {52, "set map address"},
                                     {123, "JSON control"},
                                     {0, "unknown"},
                                     {99, "unknown"}}) {
        const description described = tcp({static_cast<std::uint8_t>(type)});
        EXPECT_TRUE(described.title.starts_with(name)) << described.title;
        EXPECT_FALSE(described.effects.empty()) << name;
    }
}

TEST(describe, finds_no_fault_with_what_it_makes_itself) {
    detail_alert_settings settings = detail("FIRE");
    settings.units = {{"E1", 2}};
    clip_settings clip;
    clip.address = "http://x/a.wav";
    for (const bytes &message :
         {make_display_alert({"FIRE", 1, {}}, channel::tcp),
          make_display_alert({"FIRE", 1, 60}, channel::tcp),
          make_detail_alert(settings, channel::tcp), make_detail_alert({}, channel::tcp),
          make_hdtv_alert(60), make_reboot(), make_stop_turnout(),
          make_set_date("now", channel::tcp), make_set_page_address("", channel::tcp),
          make_set_map_address("HTTPS://x", channel::tcp), make_hdtv_settings(90),
          make_play_audio(clip, channel::tcp), make_set_gateway("10.87.33.20", channel::tcp)}) {
        const description described = tcp(message);
        EXPECT_EQ(described.faults, std::vector<std::string>()) << described.title;
    }
    EXPECT_TRUE(describe_message(make_rollcall_request(), channel::udp).faults.empty());
}

TEST(describe, every_byte_belongs_to_one_field) {
    detail_alert_settings settings = detail("FIRE");
    for (int slot = 0; slot < 16; ++slot) {
        settings.units.push_back({"U" + std::to_string(slot), slot + 1});
    }
    for (const bytes &message : {make_display_alert({"FIRE", 1, 60}, channel::tcp),
                                 make_detail_alert(settings, channel::tcp), make_hdtv_alert(60),
                                 make_set_date("now", channel::tcp), make_hdtv_settings(90),
                                 make_set_gateway("10.87.33.20", channel::tcp), bytes({46, 1, 2}),
                                 bytes({40, 'a', 0, 'b'}), bytes({99, 1})}) {
        std::vector<int> covered(message.size());
        for (const field &part : tcp(message).fields) {
            for (int i = part.offset; i < part.offset + part.size; ++i) {
                ++covered.at(static_cast<std::size_t>(i));
            }
        }
        EXPECT_EQ(covered, std::vector<int>(message.size(), 1)) << int{message[0]};
    }
}

TEST(describe, display_alert_with_and_without_a_trailer) {
    const description with = tcp(bytes({3, 1, 0, 0, 0, 4}) + "FIRE\x01\x02");
    EXPECT_EQ(value_of(with, "text"), "\"FIRE\"");
    EXPECT_EQ(value_of(with, "turnout timer"), "258 s");
    EXPECT_TRUE(has(with.effects, "sets the turnout timer to 258 s"));
    const description longer = tcp(bytes({3, 1, 0, 0, 0, 4}) + "FIRE\x01\x02\x03");
    EXPECT_EQ(value_of(longer, "turnout timer"), "no such field");
    EXPECT_EQ(value_of(longer, "text"), "\"FIRE\\x01\\x02\\x03\"");
    EXPECT_TRUE(has(longer.faults, "the text length says 4, but 7 bytes follow"));
    EXPECT_TRUE(has(tcp({3, 1}).faults, "there are 2 of at least 6 bytes"));
    EXPECT_TRUE(
        has(tcp(bytes({3, 1, 0, 0, 0, 2, 0, 65, 0, 9})).faults, "a zero byte ends the text"));
}

TEST(describe, alert_state_follows_flag_and_text) {
    const auto effect_of = [](int flag, const std::string &text) {
        detail_alert_settings settings = detail(text);
        settings.flag = flag;
        return tcp(make_detail_alert(settings, channel::tcp)).effects;
    };
    EXPECT_TRUE(has(effect_of(1, "x"), "starts an alert"));
    EXPECT_TRUE(has(effect_of(1, ""), "ends the alert"));
    EXPECT_TRUE(has(effect_of(0, "x"), "shows an empty alert if no alert is active"));
    EXPECT_TRUE(has(tcp(make_display_alert({"x", 2, {}}, channel::tcp)).effects,
                    "shows the text if no alert is active"));
}

TEST(describe, detail_alert_faults) {
    detail_alert_settings settings = detail("FIRE");
    settings.units = {{"E1", 2}, {"L\"3", 5}};
    bytes message = make_detail_alert(settings, channel::tcp);
    EXPECT_TRUE(has(tcp(message).faults, "unit 2: a quotation mark"));
    message[4] = 0;
    EXPECT_TRUE(has(tcp(message).faults, "unit 1 has a name, but colour 0"));
    message[6] = 3;
    EXPECT_TRUE(has(tcp(message).faults, "unit 3 has a colour, but no name"));
    std::fill_n(message.begin() + 84, 32, std::uint8_t{'x'});
    EXPECT_TRUE(has(tcp(message).faults, "unit 3: the name has no zero at its end"));
    EXPECT_EQ(value_of(tcp(message), "unit 3, name"), '"' + std::string(31, 'x') + '"');
    message[538] = 0;
    EXPECT_TRUE(has(tcp(message).faults, "the text length is 0"));
    EXPECT_TRUE(has(tcp(message).effects, "ends the alert"));
    message[538] = 9;
    EXPECT_TRUE(has(tcp(message).faults, "the text length says 9, and the text has 4 bytes"));
    message[539] = 0;
    EXPECT_TRUE(has(tcp(message).faults, "the text is empty, but its length is not 0"));
    EXPECT_TRUE(has(tcp(message).effects, "starts an alert"));
    message.resize(100);
    EXPECT_TRUE(has(tcp(message).faults, "there are 100 of at least 539 bytes"));
}

TEST(describe, other_faults) {
    EXPECT_TRUE(has(tcp({}).faults, "no bytes at all"));
    EXPECT_TRUE(has(tcp({99}).faults, "no message has type 99"));
    EXPECT_TRUE(has(tcp({38, 1}).faults, "there are 2 of at least 5 bytes"));
    EXPECT_TRUE(has(tcp({38, 1, 2, 3, 4}).faults, "from the type byte"));
    EXPECT_TRUE(has(tcp({40}).faults, "the date is empty"));
    EXPECT_TRUE(has(tcp({49}).faults, "there are 1 of at least 2 bytes"));
    EXPECT_TRUE(has(tcp({49, 4}).faults, "stored as \"0\""));
    EXPECT_TRUE(has(tcp({49, 1, 9}).faults, "nothing is read from offset 2"));
    EXPECT_TRUE(has(tcp(bytes({52}) + "javascript:x").faults, "http and https"));
    EXPECT_TRUE(has(tcp(bytes({52}) + "http://\"").faults, "a quotation mark"));
    EXPECT_TRUE(has(tcp(text_bytes("{\"play_audio\": \"x\"}")).faults, "neither"));
    EXPECT_TRUE(has(tcp({1}).faults, "over TCP it has no effect"));
    for (const int type : {46, 52}) {
        const bytes message{static_cast<std::uint8_t>(type)};
        EXPECT_TRUE(has(describe_message(message, channel::udp).faults, "over UDP"));
    }
    EXPECT_TRUE(has(tcp(bytes(4096, 48)).faults, "a unit takes 4095 bytes"));
    EXPECT_FALSE(has(describe_message(bytes(4096, 48), channel::udp).faults, "a unit takes"));
}

TEST(describe, any_bytes_of_any_length) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> size(0, 5000);
    const int types[] = {1, 3, 32, 38, 40, 46, 48, 49, 51, 52, 123, 7};
    for (int i = 0; i < 5000; ++i) {
        bytes message(static_cast<std::size_t>(i % 2 == 0 ? size(random) : size(random) % 20));
        std::ranges::generate(message, [&] { return static_cast<std::uint8_t>(byte(random)); });
        if (!message.empty()) {
            message[0] = static_cast<std::uint8_t>(types[i % 12]);
        }
        for (const channel via : {channel::tcp, channel::udp}) {
            const description described = describe_message(message, via);
            ASSERT_FALSE(to_text(described, message).empty());
        }
        ASSERT_FALSE(to_text(describe_record(message), message).empty());
    }
}

// Records.

TEST(records, are_told_by_code_and_size) {
    const bytes reply{2, 2, 0, 0x0a, 0x57, 0x21, 0x32, 12, wire::version};
    const auto parsed = parse_record(reply);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->type, record_type::rollcall_reply);
    EXPECT_EQ(parsed->hardware_address, "02:00:0a:57:21:32");
    EXPECT_EQ(parsed->version, wire::version);
    EXPECT_EQ(parse_record(bytes({39, 1, 2, 3, 4, 5, 6}))->type, record_type::set_date_request);
    EXPECT_EQ(parse_record(bytes({47, 1, 2, 3, 4, 5, 6}))->type, record_type::settings_request);
    for (const bytes &other : {bytes(), bytes({2}), bytes({39, 1, 2, 3, 4, 5, 6, 7}),
                               bytes({1, 1, 2, 3, 4, 5, 6}), bytes({2, 1, 2, 3, 4, 5, 6})}) {
        EXPECT_FALSE(parse_record(other));
        EXPECT_FALSE(describe_record(other).faults.empty());
    }
    EXPECT_TRUE(describe_record(reply).faults.empty());
    EXPECT_EQ(value_of(describe_record(reply), "version"), std::to_string(wire::version));
    EXPECT_TRUE(
        has(describe_record(bytes({2, 1, 2, 3, 4, 5, 6, 1, wire::version})).faults, "byte 7"));
}

// Addresses and texts.

TEST(address, host_may_carry_a_port) {
    EXPECT_EQ(to_text(resolve("127.0.0.1")), "127.0.0.1:4000");
    EXPECT_EQ(to_text(resolve("127.0.0.1:5")), "127.0.0.1:5");
    for (const char *text :
         {"", ":5", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536", "127.0.0.1:x"}) {
        EXPECT_NE(refusal([&] { resolve(text); }), "") << text;
    }
}

TEST(text, is_quoted_for_a_terminal) {
    EXPECT_EQ(quoted("a\"\\\n\t\x1b\x7fé"), "\"a\\\"\\\\\\n\\t\\x1b\\x7fé\"");
    EXPECT_EQ(quoted("\xc2\xa0ß € 🚒 \xef\xb8\x8f"), "\"\xc2\xa0ß € 🚒 \xef\xb8\x8f\"");
    EXPECT_EQ(quoted(std::string_view("\0", 1)), "\"\\x00\"");
    EXPECT_EQ(quoted(""), "\"\"");
}

TEST(text, that_steers_a_terminal_is_escaped) {
    for (int byte = 0x80; byte < 0xa0; ++byte) {
        const char last = static_cast<char>(byte);
        const std::string hex = to_hex(bytes({static_cast<std::uint8_t>(byte)}));
        EXPECT_EQ(::quoted(std::string(1, last)), "\"\\x" + hex + "\"");
        EXPECT_EQ(::quoted(std::string("\xc2") + last), "\"\\u00" + hex + "\"");
    }
}

TEST(text, that_deceives_its_reader_is_escaped) {
    EXPECT_EQ(quoted("\u200e\u200f\u2028\u2029\ufeff\u00ad"),
              "\"\\u200e\\u200f\\u2028\\u2029\\ufeff\\u00ad\"");
    EXPECT_EQ(quoted("\u202a\u202b\u202c\u202d\u202e"), "\"\\u202a\\u202b\\u202c\\u202d\\u202e\"");
    EXPECT_EQ(quoted("\u2066\u2067\u2068\u2069"), "\"\\u2066\\u2067\\u2068\\u2069\"");
    EXPECT_EQ(quoted("\U000e0041"), "\"\\U000e0041\"");
}

TEST(text, that_is_no_utf8_is_escaped_byte_by_byte) {
    for (const auto &[text, escaped] :
         {std::pair{"\xff", "\\xff"},
          {"\xc3", "\\xc3"},                            // cut off
          {"\xe2\x82", "\\xe2\\x82"},                   //
          {"\xc3(", "\\xc3("},                          //
          {"\xf0\x9f\x9a\"", "\\xf0\\x9f\\x9a\\\""},    //
          {"\xc0\x9b", "\\xc0\\x9b"},                   // longer than it has to be
          {"\xe0\x82\x9b", "\\xe0\\x82\\x9b"},          //
          {"\xf0\x80\x82\x9b", "\\xf0\\x80\\x82\\x9b"}, //
          {"\xed\xa0\x80", "\\xed\\xa0\\x80"},          // a surrogate
          {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"}, // beyond the last
          {"\xf8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"}}) {
        EXPECT_EQ(quoted(text), std::string("\"") + escaped + "\"");
    }
}

// Nothing of any bytes reaches the terminal but printable ASCII and whole characters.
TEST(text, of_any_bytes_is_harmless) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int i = 0; i < 20000; ++i) {
        std::string text(8, ' ');
        std::ranges::generate(text, [&] { return static_cast<char>(byte(random)); });
        const std::string shown = ::quoted(text);
        EXPECT_EQ(printable(shown), shown);
        EXPECT_TRUE(std::ranges::none_of(
            shown, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; }));
    }
}

TEST(text, may_keep_its_own_quotation_marks) {
    EXPECT_EQ(printable("\"a\\\" \x1b\n\x9b é"), "\"a\\\" \\x1b\\n\\x9b é");
}

TEST(text, of_bytes) {
    EXPECT_EQ(to_hex(bytes({0, 0xaf})), "00 af");
    EXPECT_EQ(bytes_text(1), "1 byte");
    EXPECT_EQ(bytes_text(2), "2 bytes");
}

} // namespace
