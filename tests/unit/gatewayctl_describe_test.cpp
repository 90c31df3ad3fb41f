#include "tools/gatewayctl/describe.h"

#include "gatewayctl_test.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

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

// Messages.

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
    EXPECT_TRUE(has(longer.faults, "the text length is 4, but 7 bytes follow"));
    EXPECT_TRUE(has(tcp({3, 1}).faults, "it has 2 of at least 6 bytes"));
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
    EXPECT_TRUE(has(tcp(message).faults, "unit 1 has a name but color 0"));
    message[6] = 3;
    EXPECT_TRUE(has(tcp(message).faults, "unit 3 has a color but no name"));
    std::fill_n(message.begin() + 84, 32, std::uint8_t{'x'});
    EXPECT_TRUE(has(tcp(message).faults, "unit 3: the name has no terminating zero"));
    EXPECT_EQ(value_of(tcp(message), "unit 3, name"), '"' + std::string(31, 'x') + '"');
    message[538] = 0;
    EXPECT_TRUE(has(tcp(message).faults, "the text length is 0"));
    EXPECT_TRUE(has(tcp(message).effects, "ends the alert"));
    message[538] = 9;
    EXPECT_TRUE(has(tcp(message).faults, "the text length is 9, and the text has 4 bytes"));
    message[539] = 0;
    EXPECT_TRUE(has(tcp(message).faults, "the text is empty but its length is not 0"));
    EXPECT_TRUE(has(tcp(message).effects, "starts an alert"));
    message.resize(100);
    EXPECT_TRUE(has(tcp(message).faults, "it has 100 of at least 539 bytes"));
}

TEST(describe, other_faults) {
    EXPECT_TRUE(has(tcp({}).faults, "the message is empty"));
    EXPECT_TRUE(has(tcp({99}).faults, "no message has type 99"));
    EXPECT_TRUE(has(tcp({38, 1}).faults, "it has 2 of at least 5 bytes"));
    EXPECT_TRUE(has(tcp({38, 1, 2, 3, 4}).faults, "from the type byte"));
    EXPECT_TRUE(has(tcp({40}).faults, "the date is empty"));
    EXPECT_TRUE(has(tcp({49}).faults, "it has 1 of at least 2 bytes"));
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

} // namespace
