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
    }

    static void tcp(const std::string &bytes) {
        dispatch_message(wire::message_of(bytes), channel::tcp, {});
    }
    static void udp(const std::string &bytes) {
        dispatch_message(wire::message_of(bytes), channel::udp, {});
    }
    static std::string config() {
        return state.files["/var/www/config.json"];
    }
};

TEST_F(dispatch, display_alert_with_a_trailer_sets_the_timer_and_shows_the_text_without_it) {
    tcp(wire::display_alert_with_turnout("FIRE", 0x0102));
    EXPECT_EQ(turnout_timer, 0x0102);
    EXPECT_EQ(member("alert_area"), "FIRE");
    EXPECT_EQ(member("alert_expiration"), std::to_string(state.now + 0x0102));
}

TEST_F(dispatch, display_alert_one_byte_longer_or_shorter_keeps_the_timer_and_its_trailer) {
    tcp(wire::display_alert_claiming(4, "FIREAB!"));
    EXPECT_EQ(turnout_timer, 120);
    EXPECT_EQ(member("alert_area"), "FIREAB!");
    tcp(wire::display_alert_claiming(4, "FIREA"));
    EXPECT_EQ(turnout_timer, 120);
    EXPECT_EQ(member("alert_area"), "FIREA");
}

TEST_F(dispatch, display_alert_of_8_bytes_with_length_0_has_a_timer_and_no_text) {
    tcp(wire::display_alert_with_turnout("", 600));
    EXPECT_EQ(turnout_timer, 600);
    EXPECT_EQ(member("alert_area"), "");
}

TEST_F(dispatch, display_alert_shorter_than_its_header_keeps_the_timer) {
    for (int size = 1; size < 8; ++size) {
        tcp(wire::display_alert_claiming(0, "").substr(0, static_cast<std::size_t>(size)));
        EXPECT_EQ(turnout_timer, 120);
    }
}

TEST_F(dispatch, display_alert_that_claims_more_text_than_there_is_keeps_the_timer) {
    tcp(wire::display_alert_claiming(65535, "FIRE\x01\x02"));
    EXPECT_EQ(turnout_timer, 120);
}

TEST_F(dispatch, timer_bytes_are_unsigned) {
    tcp(wire::display_alert_with_turnout("FIRE", 0xffff));
    EXPECT_EQ(turnout_timer, 65535);
}

TEST_F(dispatch, hdtv_alert_takes_the_timer_from_five_bytes_before_its_end) {
    tcp(wire::hdtv_alert("text", 300));
    EXPECT_EQ(turnout_timer, 300);
    EXPECT_TRUE(state.files.empty());
}

TEST_F(dispatch, hdtv_alert_of_exactly_five_bytes_reads_its_own_type_byte) {
    tcp("\x26\x05"
        "abc");
    EXPECT_EQ(turnout_timer, 0x2605);
}

TEST_F(dispatch, hdtv_alert_shorter_than_five_bytes_touches_nothing) {
    for (int size = 1; size < 5; ++size) {
        tcp(std::string("\x26\x05\x06\x07").substr(0, static_cast<std::size_t>(size)));
        EXPECT_EQ(turnout_timer, 120);
    }
}

TEST_F(dispatch, detail_alert_sets_the_timer_from_its_turnout_end) {
    tcp(wire::detail_alert{.turnout_end = 300}.bytes());
    EXPECT_EQ(turnout_timer, 300);
    EXPECT_EQ(member("alert_type"), "hdtv_alert");
}

TEST_F(dispatch, detail_alert_shorter_than_534_bytes_reads_zero_as_its_timer) {
    tcp(wire::detail_alert{.turnout_end = 300}.bytes().substr(0, 532));
    EXPECT_EQ(turnout_timer, 0);
    EXPECT_EQ(member("alert_expiration"), "0");
}

TEST_F(dispatch, reboot_starts_the_program_and_waits_for_nothing) {
    tcp(wire::reboot());
    EXPECT_EQ(state.calls, std::vector<std::string>{"fork"});
    state.next_pid = 0;
    EXPECT_CHILD_ENDS(tcp(wire::reboot()));
    EXPECT_EQ(state.executed(), std::vector<std::string>{"/sbin/reboot: reboot"});
}

TEST_F(dispatch, date_is_set_by_its_program_and_one_wait_for_any_child) {
    tcp(wire::set_date("2024-03-05 07:04:09"));
    EXPECT_TRUE(got_set_date_packet);
    EXPECT_EQ(state.calls, (std::vector<std::string>{"fork", "wait"}));
    state.next_pid = 0;
    EXPECT_CHILD_ENDS(tcp(wire::set_date("2024-03-05 07:04:09")));
    EXPECT_EQ(state.executed(), std::vector<std::string>{"/bin/date: date -s 2024-03-05 07:04:09"});
    EXPECT_EQ(state.calls.back(), "_exit 0");
}

TEST_F(dispatch, date_counts_as_got_even_when_nothing_can_be_started) {
    state.failing = {"fork"};
    tcp(wire::set_date("now"));
    EXPECT_TRUE(got_set_date_packet);
}

TEST_F(dispatch, stop_turnout_writes_its_document_and_leaves_the_alert_active) {
    tcp(wire::display_alert_with_turnout("FIRE", 0x0102));
    tcp(wire::stop_turnout());
    EXPECT_EQ(document(),
              R"([{"alert_type":"stop_turnout", "show_turnout_timer":"0", "alert_time":"0", )"
              R"("turnout_end":"0", "turnout_zero":"0", "turnout_reverse":"0", )"
              R"("alert_expiration":"258", "alert_area":"", "map_url":"", "units":[]}])");
    const std::string start = std::to_string(state.now);
    state.now += 60;
    tcp(wire::display_alert("FIRE"));
    EXPECT_EQ(member("alert_time"), start);
}

TEST_F(dispatch, page_address_restarts_the_browser_on_it) {
    kiosk_pid = 77;
    tcp(wire::page_address("http://example/page"));
    EXPECT_EQ(biseqcstr(url, "http://example/page"), 1);
    EXPECT_EQ(state.calls, (std::vector<std::string>{"kill 77 9", "waitpid 77 0", "fork"}));
}

TEST_F(dispatch, empty_page_address_stops_the_browser_and_starts_none) {
    kiosk_pid = 77;
    tcp(wire::page_address(""));
    EXPECT_EQ(url, nullptr);
    EXPECT_EQ(state.calls, (std::vector<std::string>{"kill 77 9", "waitpid 77 0"}));
    tcp(wire::page_address(""));
    EXPECT_EQ(url, nullptr);
}

TEST_F(dispatch, page_address_ends_at_its_first_zero_byte) {
    tcp(wire::page_address(std::string("http://a/\0http://b/", 19)));
    EXPECT_EQ(biseqcstr(url, "http://a/"), 1);
}

TEST_F(dispatch, rotation_is_stored_by_quarter_turns_and_restarts_the_browser) {
    const std::vector<std::pair<int, std::string>> rotations = {
        {1, "90"}, {2, "180"}, {3, "270"}, {0, "0"}};
    for (const auto &[turns, stored] : rotations) {
        have_config(R"({"rotation":"none"})");
        state.calls.clear();
        tcp(wire::settings(turns));
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
        tcp(wire::settings(turns));
        EXPECT_EQ(rotation, 90 * turns);
        EXPECT_TRUE(config().starts_with(R"({"rotation":"0"})")) << config();
        EXPECT_EQ(state.calls_of("fork").size(), 3U);
    }
}

TEST_F(dispatch, rotation_as_before_is_handed_to_the_configuration_but_restarts_no_browser) {
    rotation = 90;
    have_config(R"({"rotation":"180"})");
    tcp(wire::settings(1));
    EXPECT_TRUE(config().starts_with(R"({"rotation":"90"})"));
    EXPECT_EQ(state.calls_of("fork").size(), 2U); // the remounts only
    state.calls.clear();
    tcp(wire::settings(1));
    EXPECT_TRUE(state.calls_of("fork").empty()); // and the store knows it already
}

TEST_F(dispatch, rotation_before_any_page_is_known_is_stored_and_starts_no_browser) {
    bdestroy(url);
    url = nullptr;
    have_config(R"({"rotation":"0"})");
    tcp(wire::settings(1));
    EXPECT_TRUE(config().starts_with(R"({"rotation":"90"})"));
    EXPECT_EQ(state.calls_of("fork").size(), 2U);
    EXPECT_EQ(rotation, 90);
}

TEST_F(dispatch, stop_turnout_and_map_address_by_udp_do_nothing) {
    tcp(wire::display_alert("FIRE"));
    state.files.clear();
    udp(wire::stop_turnout());
    udp(wire::map_address("http://map/"));
    EXPECT_TRUE(state.files.empty());
    tcp(wire::map_address("http://map/"));
    EXPECT_EQ(member("map_url"), "http://map/");
}

TEST_F(dispatch, every_other_type_works_by_udp_too) {
    udp(wire::display_alert_with_turnout("FIRE", 0x0102));
    EXPECT_EQ(member("alert_area"), "FIRE");
    udp(wire::set_date("now"));
    EXPECT_TRUE(got_set_date_packet);
    udp(wire::page_address("http://example/"));
    EXPECT_EQ(biseqcstr(url, "http://example/"), 1);
    udp(wire::settings(1));
    EXPECT_EQ(rotation, 90);
    udp(wire::hdtv_alert("", 7));
    EXPECT_EQ(turnout_timer, 7);
    udp(wire::detail_alert{.turnout_end = 256}.bytes());
    EXPECT_EQ(turnout_timer, 256);
    state.calls.clear();
    udp(wire::reboot());
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
    udp(wire::page_address(std::string(4095, 'x')));
    EXPECT_EQ(url->slen, 4095);
    state.next_pid = 0;
    EXPECT_CHILD_ENDS(udp(wire::set_date(std::string(4095, 'x'))));
    EXPECT_EQ(state.executed().back(), "/bin/date: date -s " + std::string(4095, 'x'));
}

} // namespace
