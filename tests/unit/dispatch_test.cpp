#include "hdtv/dispatch.h"

#include "service_test.h"

#include <set>

namespace {

using fake::state;

class dispatch : public service_test {
  protected:
    void SetUp() override {
        service_test::SetUp();
        have_url(station_page);
        end_alert();
        state.files.clear();
        state.calls.clear();
    }

    static void tcp(const std::string &bytes) {
        gateway_message message = message_of(bytes);
        dispatch_message(message, channel::tcp, {});
    }
    static void udp(const std::string &bytes) {
        gateway_message message = message_of(bytes);
        dispatch_message(message, channel::udp, {});
    }
    static void end_alert() {
        tcp(std::string("\x03\x01\0\0\0\0", 6));
    }
    static std::string display_alert(int text_length, const std::string &text) {
        return std::string("\x03\x01\0\0", 4) + big_endian(text_length) + text;
    }
    static std::string rotation_message(int quarter_turns) {
        return std::string("1") + static_cast<char>(quarter_turns);
    }
    static std::string config() {
        return state.files["/var/www/config.json"];
    }
};

TEST_F(dispatch, display_alert_with_a_trailer_sets_the_timer_and_shows_the_text_without_it) {
    tcp(display_alert(4, "FIRE\x01\x02"));
    EXPECT_EQ(turnout_timer, 0x0102);
    EXPECT_EQ(member("alert_area"), "FIRE");
    EXPECT_EQ(member("alert_expiration"), std::to_string(state.now + 0x0102));
}

TEST_F(dispatch, display_alert_one_byte_longer_or_shorter_keeps_the_timer_and_its_trailer) {
    tcp(display_alert(4, "FIREAB!"));
    EXPECT_EQ(turnout_timer, 120);
    EXPECT_EQ(member("alert_area"), "FIREAB!");
    tcp(display_alert(4, "FIREA"));
    EXPECT_EQ(turnout_timer, 120);
    EXPECT_EQ(member("alert_area"), "FIREA");
}

TEST_F(dispatch, display_alert_of_8_bytes_with_length_0_has_a_timer_and_no_text) {
    tcp(display_alert(0, "\x02\x58"));
    EXPECT_EQ(turnout_timer, 600);
    EXPECT_EQ(member("alert_area"), "");
}

TEST_F(dispatch, display_alert_shorter_than_its_header_keeps_the_timer) {
    for (int size = 1; size < 8; ++size) {
        tcp(display_alert(0, "").substr(0, static_cast<std::size_t>(size)));
        EXPECT_EQ(turnout_timer, 120);
    }
}

TEST_F(dispatch, display_alert_that_claims_more_text_than_there_is_keeps_the_timer) {
    tcp(display_alert(65535, "FIRE\x01\x02"));
    EXPECT_EQ(turnout_timer, 120);
}

TEST_F(dispatch, timer_bytes_are_unsigned) {
    tcp(display_alert(4, "FIRE\xff\xff"));
    EXPECT_EQ(turnout_timer, 65535);
}

TEST_F(dispatch, hdtv_alert_takes_the_timer_from_five_bytes_before_its_end) {
    tcp(std::string("\x26"
                    "text\x01\x2c"
                    "abc",
                    10));
    EXPECT_EQ(turnout_timer, 300);
    EXPECT_TRUE(state.files.empty());
}

TEST_F(dispatch, hdtv_alert_is_cut_before_its_trailer) {
    gateway_message message = message_of("\x26"
                                         "text\x01\x2c"
                                         "abc");
    dispatch_message(message, channel::tcp, {});
    EXPECT_STREQ(message.text(1), "text");
}

TEST_F(dispatch, hdtv_alert_of_exactly_five_bytes_reads_its_own_type_byte) {
    tcp(std::string("\x26\x05"
                    "abc",
                    5));
    EXPECT_EQ(turnout_timer, 0x2605);
}

TEST_F(dispatch, hdtv_alert_shorter_than_five_bytes_touches_nothing) {
    for (int size = 1; size < 5; ++size) {
        gateway_message message =
            message_of(std::string("\x26\x05\x06\x07").substr(0, static_cast<std::size_t>(size)));
        dispatch_message(message, channel::tcp, {});
        EXPECT_EQ(turnout_timer, 120);
        EXPECT_EQ(message.byte(0), 0x26);
    }
}

TEST_F(dispatch, detail_alert_sets_the_timer_from_its_turnout_end) {
    std::string bytes(540, '\0');
    bytes[0] = 51;
    bytes.replace(532, 2, "\x01\x2c");
    tcp(bytes);
    EXPECT_EQ(turnout_timer, 300);
    EXPECT_EQ(member("alert_type"), "hdtv_alert");
}

TEST_F(dispatch, detail_alert_shorter_than_534_bytes_reads_zero_as_its_timer) {
    tcp("3");
    EXPECT_EQ(turnout_timer, 0);
    EXPECT_EQ(member("alert_expiration"), "0");
}

TEST_F(dispatch, reboot_starts_the_program_and_waits_for_nothing) {
    tcp(" ");
    EXPECT_EQ(state.calls, std::vector<std::string>{"fork"});
    state.next_pid = 0;
    EXPECT_THROW(tcp(" "), fake::child_ended);
    EXPECT_EQ(state.executed(), std::vector<std::string>{"/sbin/reboot: reboot"});
}

TEST_F(dispatch, date_is_set_by_its_program_and_one_wait_for_any_child) {
    tcp("(2024-03-05 07:04:09");
    EXPECT_TRUE(got_set_date_packet);
    EXPECT_EQ(state.calls, (std::vector<std::string>{"fork", "wait"}));
    state.next_pid = 0;
    EXPECT_THROW(tcp("(2024-03-05 07:04:09"), fake::child_ended);
    EXPECT_EQ(state.executed(), std::vector<std::string>{"/bin/date: date -s 2024-03-05 07:04:09"});
    EXPECT_EQ(state.calls.back(), "_exit 0");
}

TEST_F(dispatch, date_counts_as_got_even_when_nothing_can_be_started) {
    state.failing = {"fork"};
    tcp("(now");
    EXPECT_TRUE(got_set_date_packet);
}

TEST_F(dispatch, stop_turnout_writes_its_document_and_leaves_the_alert_active) {
    tcp(display_alert(4, "FIRE\x01\x02"));
    tcp(".");
    EXPECT_EQ(document(),
              R"([{"alert_type":"stop_turnout", "show_turnout_timer":"0", "alert_time":"0", )"
              R"("turnout_end":"0", "turnout_zero":"0", "turnout_reverse":"0", )"
              R"("alert_expiration":"258", "alert_area":"", "map_url":"", "units":[]}])");
    const std::string start = std::to_string(state.now);
    state.now += 60;
    tcp(display_alert(4, "FIRE"));
    EXPECT_EQ(member("alert_time"), start);
}

TEST_F(dispatch, page_address_restarts_the_browser_on_it) {
    kiosk_pid = 77;
    tcp("0http://example/page");
    EXPECT_EQ(biseqcstr(url, "http://example/page"), 1);
    EXPECT_EQ(state.calls, (std::vector<std::string>{"kill 77 9", "waitpid 77 0", "fork"}));
}

TEST_F(dispatch, empty_page_address_stops_the_browser_and_starts_none) {
    kiosk_pid = 77;
    tcp("0");
    EXPECT_EQ(url, nullptr);
    EXPECT_EQ(state.calls, (std::vector<std::string>{"kill 77 9", "waitpid 77 0"}));
    tcp("0");
    EXPECT_EQ(url, nullptr);
}

TEST_F(dispatch, page_address_ends_at_its_first_zero_byte) {
    tcp(std::string("0http://a/\0http://b/", 20));
    EXPECT_EQ(biseqcstr(url, "http://a/"), 1);
}

TEST_F(dispatch, rotation_is_stored_by_quarter_turns_and_restarts_the_browser) {
    const std::vector<std::pair<int, std::string>> rotations = {
        {1, "90"}, {2, "180"}, {3, "270"}, {0, "0"}};
    for (const auto &[turns, stored] : rotations) {
        have_config(R"({"rotation":"none"})");
        state.calls.clear();
        tcp(rotation_message(turns));
        EXPECT_EQ(rotation, 90 * turns);
        EXPECT_TRUE(config().starts_with(R"({"rotation":")" + stored + R"("})")) << config();
        EXPECT_EQ(state.calls_of("fork").size(), 3U); // two remounts and the browser
    }
    EXPECT_TRUE(got_hdtv_settings_packet);
}

TEST_F(dispatch, rotation_beyond_three_quarter_turns_is_stored_as_0_and_kept_as_the_product) {
    for (const int turns : {4, 255}) {
        have_config(R"({"rotation":"90"})");
        state.calls.clear();
        tcp(rotation_message(turns));
        EXPECT_EQ(rotation, 90 * turns);
        EXPECT_TRUE(config().starts_with(R"({"rotation":"0"})")) << config();
        EXPECT_EQ(state.calls_of("fork").size(), 3U);
    }
}

TEST_F(dispatch, rotation_as_before_is_handed_to_the_configuration_but_restarts_no_browser) {
    rotation = 90;
    have_config(R"({"rotation":"180"})");
    tcp(rotation_message(1));
    EXPECT_TRUE(config().starts_with(R"({"rotation":"90"})"));
    EXPECT_EQ(state.calls_of("fork").size(), 2U); // the remounts only
    state.calls.clear();
    tcp(rotation_message(1));
    EXPECT_TRUE(state.calls_of("fork").empty()); // and the store knows it already
}

TEST_F(dispatch, rotation_before_any_page_is_known_is_stored_and_starts_no_browser) {
    bdestroy(url);
    url = nullptr;
    have_config(R"({"rotation":"0"})");
    tcp(rotation_message(1));
    EXPECT_TRUE(config().starts_with(R"({"rotation":"90"})"));
    EXPECT_EQ(state.calls_of("fork").size(), 2U);
    EXPECT_EQ(rotation, 90);
}

TEST_F(dispatch, stop_turnout_and_map_address_by_udp_do_nothing) {
    tcp(display_alert(4, "FIRE"));
    state.files.clear();
    udp(".");
    udp("4http://map/");
    EXPECT_TRUE(state.files.empty());
    tcp("4http://map/");
    EXPECT_EQ(member("map_url"), "http://map/");
}

TEST_F(dispatch, every_other_type_works_by_udp_too) {
    udp(display_alert(4, "FIRE\x01\x02"));
    EXPECT_EQ(member("alert_area"), "FIRE");
    udp("(now");
    EXPECT_TRUE(got_set_date_packet);
    udp("0http://example/");
    EXPECT_EQ(biseqcstr(url, "http://example/"), 1);
    udp(rotation_message(1));
    EXPECT_EQ(rotation, 90);
    udp(std::string("\x26\0\x07"
                    "abc",
                    6));
    EXPECT_EQ(turnout_timer, 7);
    udp(std::string("3") + std::string(531, '\0') + "\x01");
    EXPECT_EQ(turnout_timer, 256);
    state.calls.clear();
    udp(" ");
    EXPECT_EQ(state.calls, std::vector<std::string>{"fork"});
}

TEST_F(dispatch, unknown_types_do_nothing) {
    const std::set<int> known = {3, 32, 38, 40, 46, 48, 49, 51, 52, 123};
    state.calls.clear();
    for (int type = 0; type < 256; ++type) {
        if (!known.contains(type)) {
            tcp(std::string(1, static_cast<char>(type)) + std::string(600, 'x'));
            if (type != 1) {
                udp(std::string(1, static_cast<char>(type)) + std::string(600, 'x'));
            }
        }
    }
    EXPECT_TRUE(state.calls.empty());
    EXPECT_TRUE(state.files.empty());
    EXPECT_EQ(turnout_timer, 120);
}

TEST_F(dispatch, empty_message_does_nothing) {
    tcp("");
    EXPECT_TRUE(state.calls.empty());
}

TEST_F(dispatch, texts_of_a_full_buffer_end_at_its_end) {
    udp("0" + std::string(4095, 'x'));
    EXPECT_EQ(url->slen, 4095);
    state.next_pid = 0;
    EXPECT_THROW(udp("(" + std::string(4095, 'x')), fake::child_ended);
    EXPECT_EQ(state.executed().back(), "/bin/date: date -s " + std::string(4095, 'x'));
}

} // namespace
