#include "hdtv/alert_decision.h"
#include "hdtv/messages.h"

#include "wire.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using wire::message_of;

// Written out by hand.
static_assert(wire::version == protocol::version);

// Which type counts on which channel.

TEST(messages, type_counts_on_the_channels_that_the_protocol_names) {
    const std::set<int> on_both = {3, 32, 38, 40, 48, 49, 51, 123};
    const std::set<int> on_tcp_only = {46, 52};
    const std::set<int> on_udp_only = {1};
    for (int type = 0; type < 256; ++type) {
        const auto code = static_cast<std::uint8_t>(type);
        EXPECT_EQ(counts_on(code, channel::tcp),
                  on_both.contains(type) || on_tcp_only.contains(type));
        EXPECT_EQ(counts_on(code, channel::udp),
                  on_both.contains(type) || on_udp_only.contains(type));
    }
}

// Display alerts.

TEST(messages, display_alert_has_a_trailer_only_where_its_length_fits_exactly) {
    const gateway_message exact = message_of(wire::display_alert_with_turnout("FIRE", 0x0102));
    EXPECT_EQ(read_display_alert(exact).turnout, 0x0102);
    EXPECT_EQ(read_display_alert(exact).text, "FIRE");
    for (const char *rest : {"FIREABC", "FIREA", "FIRE", ""}) {
        const gateway_message other = message_of(wire::display_alert_claiming(4, rest, 7));
        EXPECT_EQ(read_display_alert(other).turnout, std::nullopt);
        EXPECT_EQ(read_display_alert(other).text, rest);
        EXPECT_EQ(read_display_alert(other).flag, 7);
    }
}

TEST(messages, display_alerts_text_ends_at_a_zero_byte_before_its_trailer) {
    const std::string text("A\0B", 3);
    const gateway_message message = message_of(wire::display_alert_with_turnout(text, 60));
    EXPECT_EQ(read_display_alert(message).text, "A");
    EXPECT_EQ(read_display_alert(message).turnout, 60);
}

TEST(messages, display_alert_leaves_the_message_as_it_is) {
    const std::string bytes = wire::display_alert_with_turnout("FIRE", 0x4142);
    const gateway_message message = message_of(bytes);
    EXPECT_EQ(read_display_alert(message).text, "FIRE");
    EXPECT_STREQ(message.text(6), "FIREAB");
}

TEST(messages, display_alert_of_a_whole_datagram_ends_at_its_end) {
    const gateway_message message = message_of(wire::display_alert(std::string(4090, 'x')));
    EXPECT_EQ(read_display_alert(message).text.size(), 4090U);
}

TEST(messages, empty_message_reads_as_zeros_of_every_type) {
    const gateway_message message;
    EXPECT_EQ(read_display_alert(message).text, "");
    EXPECT_EQ(read_display_alert(message).turnout, std::nullopt);
    EXPECT_EQ(read_hdtv_alert(message).turnout, std::nullopt);
    EXPECT_EQ(read_detail_alert(message).text_length, 0);
    EXPECT_EQ(read_hdtv_settings(message).quarter_turns, 0);
    EXPECT_STREQ(read_set_date(message).date, "");
    EXPECT_EQ(read_json_control(message).text, "");
}

// Hdtv alerts.

TEST(messages, hdtv_alerts_timer_counts_from_its_end) {
    EXPECT_EQ(read_hdtv_alert(message_of(wire::hdtv_alert("text", 300))).turnout, 300);
    EXPECT_EQ(read_hdtv_alert(message_of("\x26\x05"
                                         "abc"))
                  .turnout,
              0x2605);
    EXPECT_EQ(read_hdtv_alert(message_of("\x26\x05"
                                         "ab"))
                  .turnout,
              std::nullopt);
}

// Detail alerts.

TEST(messages, detail_alert_is_read_field_by_field) {
    const gateway_message message = message_of(wire::detail_alert{.flag = 9,
                                                                  .text = "FIRE",
                                                                  .text_length = 0x0304,
                                                                  .units = {{3, {"E1", 200}}},
                                                                  .turnout_end = 0x0102,
                                                                  .turnout_zero = 0xfffe,
                                                                  .turnout_reverse = 255}
                                                   .bytes());
    const detail_alert alert = read_detail_alert(message);
    EXPECT_EQ(alert.flag, 9);
    EXPECT_EQ(alert.text, "FIRE");
    EXPECT_EQ(alert.text_length, 0x0304);
    EXPECT_EQ(alert.units[2].color, 0);
    EXPECT_EQ(alert.units[3].color, 200);
    EXPECT_EQ(alert.units[3].name, "E1");
    EXPECT_EQ(alert.turnout_end, 0x0102);
    EXPECT_EQ(alert.turnout_zero, 0xfffe);
    EXPECT_EQ(alert.turnout_reverse, 255);
}

TEST(messages, unit_name_that_fills_its_slot_is_cut_to_31_bytes) {
    const gateway_message message = message_of(wire::detail_alert{
        .units = {{14, {std::string(32, 'A'), 1}},
                  {15, {std::string(32, 'B'), 1}}}}.bytes());
    EXPECT_EQ(read_detail_alert(message).units[14].name, std::string(31, 'A'));
    EXPECT_EQ(read_detail_alert(message).units[15].name, std::string(31, 'B'));
}

// The others.

TEST(messages, texts_run_from_their_place_to_the_first_zero_or_the_end) {
    const std::string rest = std::string("text\0rest", 9);
    EXPECT_STREQ(read_set_date(message_of(wire::set_date(rest))).date, "text");
    EXPECT_EQ(read_set_page_address(message_of(wire::page_address(rest))).address, "text");
    EXPECT_EQ(read_set_map_address(message_of(wire::map_address(rest))).address, "text");
    EXPECT_EQ(read_json_control(message_of("{" + rest)).text, "{text");
    const std::string longest(4095, 'x');
    EXPECT_EQ(read_set_page_address(message_of(wire::page_address(longest))).address, longest);
}

TEST(messages, quarter_turns_are_unsigned) {
    EXPECT_EQ(read_hdtv_settings(message_of(wire::settings(255))).quarter_turns, 255);
}

// What an alert does: the whole table.

TEST(alert_decision, depends_on_state_flag_and_text_alone) {
    struct row {
        bool is_active;
        int flag;
        bool is_text_empty;
        alert_decision expected;
    };
    constexpr row table[] = {
        {false, 1, false, alert_decision::start},     {false, 1, true, alert_decision::end},
        {false, 0, false, alert_decision::show_idle}, {false, 0, true, alert_decision::show_idle},
        {false, 2, false, alert_decision::show_idle}, {false, 255, true, alert_decision::show_idle},
        {true, 1, false, alert_decision::update},     {true, 1, true, alert_decision::end},
        {true, 0, false, alert_decision::ignore},     {true, 0, true, alert_decision::ignore},
        {true, 2, false, alert_decision::ignore},     {true, 255, true, alert_decision::ignore},
    };
    for (const auto &[is_active, flag, is_text_empty, expected] : table) {
        EXPECT_EQ(decide(is_active, static_cast<std::uint8_t>(flag), is_text_empty), expected)
            << is_active << flag << is_text_empty;
    }
}

} // namespace
