#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/text.h"

#include "gatewayctl_test.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

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
                  "the rotation has to be 0, 90, 180 or 270 degrees");
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
              "the protocol allows no quotation mark in \"volume\"");
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
              "the turnout time is 65536, but has to be from 0 to 65535 seconds");
    EXPECT_NE(refusal([] { make_hdtv_alert(-1); }), "");
    EXPECT_EQ(refusal([] {
                  make_display_alert({"x", 256, {}}, channel::tcp);
              }),
              "the flag is 256, but has to be from 0 to 255");
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
    EXPECT_EQ(with({{"E1", 0}}), "the color of E1 is 0; colors are 1 to 16, and at most 255");
    EXPECT_NE(with({{"E1", 256}}), "");
    EXPECT_EQ(with(std::vector<called_unit>(16, {"E1", 1})), "");
    EXPECT_EQ(with(std::vector<called_unit>(17, {"E1", 1})),
              "there are 17 units; a message holds at most 16");
}

TEST(messages, unit_is_a_name_with_a_colour) {
    EXPECT_EQ(parse_unit("E1:16").name, "E1");
    EXPECT_EQ(parse_unit("E1:16").color, 16);
    EXPECT_EQ(parse_unit("A:B:3").name, "A:B");
    EXPECT_EQ(parse_unit("E1").color, 1);
    EXPECT_EQ(parse_unit("E1:red").color, 1);
    EXPECT_EQ(parse_unit("E1:Teal").color, 12);
    EXPECT_EQ(parse_unit("E1:gray").color, 16);
    EXPECT_EQ(parse_unit("red").name, "red");
    EXPECT_EQ(refusal([] { parse_unit("E1:mauve"); }),
              "in the unit \"E1:mauve\" the color is neither a number nor one of red, blue, green, "
              "yellow, orange, purple, cyan, white, pink, lime, brown, teal, navy, maroon, silver, "
              "gray");
    for (const char *text : {"E1:", "E1:mauve", "E1:-1", "E1:1x", "E1:9999"}) {
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

} // namespace
