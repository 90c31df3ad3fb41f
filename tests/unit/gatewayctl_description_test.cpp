// What a message is and does, as an installer reads it.

#include "tools/gatewayctl/describe.h"

#include "gatewayctl_test.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using lines = std::vector<std::string>;

const std::string to_station_page = "returns the browser to the station page if it shows another";

std::string shown(const bytes &message, channel via = channel::tcp) {
    return to_text(describe_message(message, via), message);
}

lines effects(const bytes &message, channel via = channel::tcp) {
    return describe_message(message, via).effects;
}

lines faults(const bytes &message, channel via = channel::tcp) {
    return describe_message(message, via).faults;
}

bytes some_detail_alert() {
    detail_alert_settings settings = detail("FIRE");
    settings.units = {{"E1", 2}, {"L3", 5}};
    settings.turnout_end = 120;
    settings.turnout_zero = 90;
    settings.turnout_reverse = 1;
    return make_detail_alert(settings, channel::tcp);
}

TEST(description, of_a_detail_alert) {
    EXPECT_EQ(shown(some_detail_alert()),
              "detail alert, 543 bytes over TCP\n"
              "      0  33                          type                51, detail alert\n"
              "      1  01                          alert flag          1, alert on\n"
              "      2  00 00                       not read\n"
              "      4  02                          unit 1, color       2\n"
              "      5  05                          unit 2, color       5\n"
              "     20  45 31 00 00 00 00 00 00 ..  unit 1, name        \"E1\"\n"
              "     52  4c 33 00 00 00 00 00 00 ..  unit 2, name        \"L3\"\n"
              "    532  00 78                       turnout end         120 s\n"
              "    534  00 5a                       turnout zero        90 s\n"
              "    536  01                          turnout reverse     1\n"
              "    537  00 04                       text length         4\n"
              "    539  46 49 52 45                 text                \"FIRE\"\n"
              "What a unit does with it:\n"
              "  - sets the turnout timer to 120 s\n"
              "  - returns the browser to the station page if it shows another\n"
              "  - starts an alert, waking and taking over the television; if one is active, shows "
              "the new text instead\n"
              "  - keeps the message for a map address that may follow\n");
}

TEST(description, shows_the_first_eight_bytes_of_a_field) {
    EXPECT_EQ(shown(bytes({40}) + "12345678"),
              "set date, 9 bytes over TCP\n"
              "      0  28                          type                40, set date\n"
              "      1  31 32 33 34 35 36 37 38     date                \"12345678\"\n"
              "What a unit does with it:\n"
              "  - runs date -s \"12345678\" and waits until it ends\n");
    EXPECT_NE(shown(bytes({40}) + "123456789").find("36 37 38 ..  date"), std::string::npos);
}

TEST(description, of_what_is_missing_has_no_field) {
    const description described = describe_message(bytes({3, 2}), channel::tcp);
    ASSERT_EQ(described.fields.size(), 2U);
    EXPECT_EQ(described.fields[0].name, "type");
    EXPECT_EQ(described.fields[1].name, "alert flag");
    EXPECT_EQ(described.fields[1].value, "2, not on");
    EXPECT_EQ(described.faults,
              lines{"it has 2 of at least 6 bytes; missing bytes are read as zeros"});
}

TEST(description, of_a_display_alert_tells_the_timer_and_the_page) {
    EXPECT_EQ(effects(make_display_alert({"", 1, 60}, channel::tcp)),
              (lines{"sets the turnout timer to 60 s", to_station_page,
                     "ends the alert and hands the television back"}));
    EXPECT_EQ(effects(make_display_alert({"x", 0, {}}, channel::tcp)),
              (lines{"leaves the turnout timer as it is", to_station_page,
                     "shows the text if no alert is active, otherwise nothing"}));
}

TEST(description, of_a_rotation) {
    EXPECT_EQ(effects({49, 3}),
              (lines{"rotates the page by 270 degrees",
                     "stores \"270\" in the configuration, if the value differs"}));
    EXPECT_EQ(faults({49, 3}), lines());
    EXPECT_EQ(effects({49, 4}), (lines{"rotates the page by 360 degrees",
                                       "stores \"0\" in the configuration, if the value differs"}));
}

TEST(description, of_an_hdtv_alert) {
    EXPECT_EQ(effects(make_hdtv_alert(60)),
              lines{"sets the turnout timer to 60 s, and shows nothing"});
    EXPECT_EQ(effects({38, 0, 60}), lines{"does nothing"});
}

TEST(description, of_addresses) {
    EXPECT_EQ(effects({48}), lines{"stops the browser until an alert starts it again"});
    EXPECT_EQ(effects(bytes({48}) + "http://x"),
              lines{"shows that page until an alert brings the station page back"});
    EXPECT_EQ(faults({52}), lines());
    EXPECT_EQ(effects({52}),
              lines{"shows the map with the last detail alert if an alert is active, "
                    "otherwise nothing"});
}

TEST(description, of_an_empty_slot_with_a_name) {
    bytes message = some_detail_alert();
    message[21] = '"';
    message[4] = 0;
    EXPECT_EQ(faults(message), lines{"unit 1 has a name but color 0: its slot counts as empty"});
}

TEST(description, of_a_message_on_the_wrong_channel) {
    EXPECT_EQ(effects({1}), lines{"does nothing: this message works over UDP only"});
    EXPECT_EQ(faults({1}), lines{"over TCP it has no effect"});
    EXPECT_EQ(effects({46}, channel::udp), lines{"does nothing: this message works over TCP only"});
    EXPECT_EQ(faults({46}, channel::udp), lines{"over UDP it has no effect"});
}

TEST(description, of_a_message_that_nobody_knows) {
    EXPECT_EQ(effects({99, 1}), lines{"does nothing"});
    EXPECT_EQ(faults({99, 1}), lines{"no message has type 99"});
}

TEST(description, of_a_clip_tells_all_that_is_said_about_it) {
    EXPECT_EQ(effects(text_bytes(R"({"play_audio":"http://x/a.wav","volume":"5"})")),
              (lines{"fetches and plays \"http://x/a.wav\"", "with volume \"5\""}));
    EXPECT_EQ(effects(text_bytes(R"({"comm_gw":"10.87.33.20"})")),
              lines{"takes \"10.87.33.20\" as its gateway"});
    EXPECT_EQ(faults(text_bytes(R"({"comm_gw":"10.87.33.20"})")), lines());
}

} // namespace
