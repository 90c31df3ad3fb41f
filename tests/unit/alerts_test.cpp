#include "hdtv/alerts.h"

#include "service_test.h"

#include "cec/cec.h"

namespace {

void display(const std::string &text, int flag = 1) {
    handle_display_alert(read_display_alert(wire::message_of(wire::display_alert(text, flag))));
}

void detail(const wire::detail_alert &alert) {
    const gateway_message message = wire::message_of(alert.bytes());
    handle_detail_alert(read_detail_alert(message), message);
}

void map_address(const std::string &address) {
    handle_set_map_url(read_set_map_address(wire::message_of(wire::map_address(address))));
}

constexpr const char *idle_detail_document =
    R"("alert_time":"0", "turnout_end":"0", "turnout_zero":"0", "turnout_reverse":"0", )"
    R"("alert_expiration":"120", "alert_area":"", "map_url":"", "units":[]}])";

class alerts : public service_test {
  protected:
    void SetUp() override {
        service_test::SetUp();
        have_url(station_page);
        // The television shows another source, so every start and end of an alert shows on the bus.
        cec_init();
        recording_port::receive({0x0F, 0x80, 0x10, 0x00, 0x20, 0x00});
        forget_document();
        fake::state.calls.clear();
    }

    static std::vector<std::string> heard() {
        return fake::state.calls_of("cec ");
    }

    static void forget_document() {
        fake::state.files.clear();
    }
    static bool wrote_document() {
        return fake::state.files.contains("/dev/shm/alerts.json");
    }
    static std::string units() {
        const std::string text = document();
        const auto from = text.find("\"units\":[") + 9;
        return text.substr(from, text.size() - 3 - from);
    }
    static std::string clock() {
        return std::to_string(fake::state.now);
    }
};

// Display alerts.

TEST_F(alerts, display_alert_starts_once_and_a_second_one_only_rewrites_the_document) {
    display("FIRE");
    const std::string first = document();
    EXPECT_EQ(member("alert_type"), "display_alert");
    EXPECT_EQ(member("show_turnout_timer"), "1");
    EXPECT_EQ(member("alert_area"), "FIRE");
    EXPECT_EQ(member("alert_time"), clock());
    forget_document();
    fake::state.now += 60;
    display("FIRE");
    EXPECT_EQ(document(), first);
}

TEST_F(alerts, display_alert_prints_the_length_of_its_text) {
    display("FIRE");
    EXPECT_NE(output().find("4\nstandby_after_alert 0\n"), std::string::npos);
    display("");
    EXPECT_NE(output().find("\n0\nstandby_after_alert 0\n"), std::string::npos);
}

TEST_F(alerts, display_alert_with_another_flag_during_an_alert_changes_nothing) {
    display("FIRE");
    forget_document();
    for (const int flag : {0, 2, 255}) {
        display("OTHER", flag);
        display("", flag);
    }
    EXPECT_FALSE(wrote_document());
    fake::state.now += 60;
    display("FIRE");
    EXPECT_EQ(member("alert_time"), std::to_string(fake::state.now - 60));
}

TEST_F(alerts, display_alert_with_flag_1_and_empty_text_while_idle_writes_its_document) {
    display("");
    EXPECT_EQ(member("alert_type"), "display_alert");
    EXPECT_EQ(member("show_turnout_timer"), "1");
    EXPECT_EQ(member("alert_area"), "");
}

TEST_F(alerts, display_alert_with_flag_1_and_empty_text_ends_the_alert_with_its_old_start) {
    display("FIRE");
    fake::state.now += 60;
    display("");
    EXPECT_EQ(member("alert_area"), "");
    EXPECT_EQ(member("alert_time"), std::to_string(fake::state.now - 60));
    display("FIRE");
    EXPECT_EQ(member("alert_time"), clock());
}

TEST_F(alerts, display_alert_with_another_flag_while_idle_shows_its_text_with_the_old_start) {
    display("FIRE");
    const std::string start = clock();
    display("");
    fake::state.now += 60;
    display("NOTICE", 7);
    EXPECT_EQ(member("alert_area"), "NOTICE");
    EXPECT_EQ(member("show_turnout_timer"), "7");
    EXPECT_EQ(member("alert_time"), start);
    display("FIRE");
    EXPECT_EQ(member("alert_time"), clock()); // it had not become an alert
}

TEST_F(alerts, display_alert_during_a_detail_alert_shows_no_units) {
    wire::detail_alert alert;
    alert.units = {{0, {"E1", 2}}};
    alert.turnout_end = 60;
    detail(alert);
    display("UPDATE");
    EXPECT_EQ(member("alert_type"), "display_alert");
    EXPECT_EQ(member("turnout_end"), "0");
    EXPECT_EQ(units(), "");
}

// Detail alerts.

TEST_F(alerts, detail_alert_shows_text_units_and_turnout_values) {
    wire::detail_alert alert;
    alert.units = {{0, {"E1", 2}}, {2, {"L3", 5}}};
    alert.turnout_end = 0x0102;
    alert.turnout_zero = 0xfffe;
    alert.turnout_reverse = 200;
    detail(alert);
    EXPECT_EQ(member("alert_type"), "hdtv_alert");
    EXPECT_EQ(member("show_turnout_timer"), "1");
    EXPECT_EQ(member("alert_time"), clock());
    EXPECT_EQ(member("turnout_end"), "258");
    EXPECT_EQ(member("turnout_zero"), "65534");
    EXPECT_EQ(member("turnout_reverse"), "200");
    EXPECT_EQ(member("alert_area"), "FIRE");
    EXPECT_EQ(member("map_url"), "");
    EXPECT_EQ(units(), R"({"unit":"E1","color":"2"},{"unit":"L3","color":"5"})");
    EXPECT_TRUE(output().find("Unit: E1 2\nUnit: L3 5\nWriting JSON: ") != std::string::npos);
}

TEST_F(alerts, detail_alert_lists_only_filled_slots_the_first_without_a_comma) {
    wire::detail_alert alert;
    alert.units = {{1, {"E1", 255}}, {3, {"L3", 1}}, {4, {"UNSEEN", 0}}};
    detail(alert);
    EXPECT_EQ(units(), R"({"unit":"E1","color":"255"},{"unit":"L3","color":"1"})");
}

TEST_F(alerts, detail_alert_lists_all_sixteen_slots) {
    wire::detail_alert alert;
    std::string expected;
    for (int slot = 0; slot < 16; ++slot) {
        const std::string name = "U" + std::to_string(slot);
        alert.units[slot] = {name, slot + 1};
        expected += (slot == 0 ? "" : ",") + ("{\"unit\":\"" + name) + "\",\"color\":\"" +
                    std::to_string(slot + 1) + "\"}";
    }
    detail(alert);
    EXPECT_EQ(units(), expected);
}

TEST_F(alerts, unit_with_an_empty_name_is_listed) {
    wire::detail_alert alert;
    alert.units = {{0, {"", 3}}, {1, {"E1", 4}}};
    detail(alert);
    EXPECT_EQ(units(), R"({"unit":"","color":"3"},{"unit":"E1","color":"4"})");
}

TEST_F(alerts, at_most_31_bytes_of_a_name_without_a_zero_are_taken) {
    wire::detail_alert alert;
    std::string expected;
    for (int slot = 0; slot < 16; ++slot) {
        alert.units[slot] = {std::string(32, static_cast<char>('A' + slot)), 255};
        expected += (slot == 0 ? "" : ",") +
                    ("{\"unit\":\"" + std::string(31, static_cast<char>('A' + slot))) +
                    "\",\"color\":\"255\"}";
    }
    detail(alert);
    EXPECT_EQ(units(), expected);
}

TEST_F(alerts, detail_alert_update_keeps_start_and_turnout_values_of_the_first) {
    wire::detail_alert first;
    first.turnout_end = 60;
    first.turnout_zero = 30;
    first.turnout_reverse = 1;
    detail(first);
    const std::string start = clock();
    fake::state.now += 60;
    wire::detail_alert second;
    second.text = "UPDATE";
    second.units = {{5, {"E9", 9}}};
    second.turnout_end = 99;
    detail(second);
    EXPECT_EQ(member("alert_area"), "UPDATE");
    EXPECT_EQ(member("alert_time"), start);
    EXPECT_EQ(member("turnout_end"), "60");
    EXPECT_EQ(member("turnout_zero"), "30");
    EXPECT_EQ(member("turnout_reverse"), "1");
    EXPECT_EQ(units(), R"({"unit":"E9","color":"9"})");
}

TEST_F(alerts, detail_alert_with_flag_1_and_empty_text_ends_the_alert_with_an_empty_document) {
    wire::detail_alert alert;
    alert.units = {{0, {"E1", 2}}};
    detail(alert);
    alert.text = "";
    detail(alert);
    EXPECT_EQ(member("show_turnout_timer"), "1");
    EXPECT_TRUE(document().ends_with(idle_detail_document)) << document();
    map_address("http://m");
    EXPECT_EQ(member("map_url"), "");
}

TEST_F(alerts, length_field_0_ends_the_alert_whatever_text_bytes_follow) {
    detail({});
    wire::detail_alert end;
    end.text = "STILL HERE";
    end.text_length = 0;
    detail(end);
    EXPECT_TRUE(document().ends_with(idle_detail_document)) << document();
}

TEST_F(alerts, length_field_alone_starts_an_alert_even_without_text_bytes) {
    wire::detail_alert alert;
    alert.text = "";
    alert.text_length = 1;
    detail(alert);
    EXPECT_EQ(member("alert_time"), clock());
    EXPECT_EQ(member("alert_area"), "");
}

TEST_F(alerts, length_field_beyond_the_buffer_is_taken_as_not_empty) {
    for (const int length : {3557, 3558, 65535}) {
        wire::detail_alert alert;
        alert.text_length = length;
        alert.text = std::string(4096 - 539, 'x');
        detail(alert);
        EXPECT_EQ(member("alert_area"), alert.text);
        display("");
    }
}

TEST_F(alerts, text_shown_is_the_bytes_up_to_the_first_zero_regardless_of_the_length_field) {
    wire::detail_alert alert;
    alert.text = "MUCH LONGER";
    alert.text_length = 2;
    detail(alert);
    EXPECT_EQ(member("alert_area"), "MUCH LONGER");
}

TEST_F(alerts, detail_alert_with_another_flag_while_idle_writes_an_empty_document) {
    wire::detail_alert alert;
    alert.flag = 9;
    alert.units = {{0, {"E1", 2}}};
    detail(alert);
    EXPECT_EQ(member("alert_type"), "hdtv_alert");
    EXPECT_EQ(member("show_turnout_timer"), "9");
    EXPECT_TRUE(document().ends_with(idle_detail_document)) << document();
}

TEST_F(alerts, ignored_detail_alert_shows_up_with_a_later_map_address) {
    wire::detail_alert alert;
    alert.units = {{0, {"E1", 2}}};
    alert.turnout_end = 60;
    detail(alert);
    const std::string start = clock();
    forget_document();
    wire::detail_alert ignored;
    ignored.flag = 0;
    ignored.text = "IGNORED";
    ignored.units = {{7, {"T7", 7}}};
    ignored.turnout_end = 99;
    detail(ignored);
    EXPECT_FALSE(wrote_document());
    map_address("http://map/");
    EXPECT_EQ(member("show_turnout_timer"), "0");
    EXPECT_EQ(member("alert_area"), "IGNORED");
    EXPECT_EQ(member("map_url"), "http://map/");
    EXPECT_EQ(member("turnout_end"), "60");
    EXPECT_EQ(member("alert_time"), start);
    EXPECT_EQ(units(), R"({"unit":"T7","color":"7"})");
}

// Map addresses.

TEST_F(alerts, map_address_while_idle_changes_nothing) {
    map_address("http://map/");
    EXPECT_FALSE(wrote_document());
    wire::detail_alert alert;
    alert.flag = 0;
    detail(alert);
    forget_document();
    map_address("http://map/");
    EXPECT_FALSE(wrote_document());
}

TEST_F(alerts, map_address_disappears_with_the_next_detail_alert) {
    detail({});
    map_address("http://map/");
    EXPECT_EQ(member("map_url"), "http://map/");
    EXPECT_EQ(member("alert_area"), "FIRE");
    detail({});
    EXPECT_EQ(member("map_url"), "");
}

TEST_F(alerts, map_address_during_a_display_alert_shows_the_last_detail_alert) {
    wire::detail_alert earlier;
    earlier.text = "EARLIER";
    earlier.units = {{0, {"E1", 2}}};
    detail(earlier);
    wire::detail_alert end;
    end.text = "";
    detail(end);
    display("FIRE");
    map_address("http://map/");
    EXPECT_EQ(member("alert_type"), "hdtv_alert");
    EXPECT_EQ(member("alert_area"), ""); // the last detail alert was the one that ended it
    EXPECT_EQ(units(), "");
    EXPECT_EQ(member("map_url"), "http://map/");
}

TEST_F(alerts, map_address_may_be_empty) {
    detail({});
    map_address("");
    EXPECT_EQ(member("map_url"), "");
    EXPECT_EQ(member("alert_area"), "FIRE");
}

// The television.

TEST_F(alerts, television_is_switched_at_the_start_and_handed_back_at_every_end) {
    const auto switched = [](const char *call) { return std::vector<std::string>{call}; };
    for (int round = 0; round < 2; ++round) {
        fake::state.calls.clear();
        display("FIRE");
        EXPECT_EQ(heard(), switched("cec active source 1000"));
        display("FIRE");
        display("", 0);
        EXPECT_EQ(heard().size(), 1U); // no TV action for an update or an ignored message
        fake::state.calls.clear();
        display("");
        EXPECT_EQ(heard(), switched("cec active source 2000"));
    }
    fake::state.calls.clear();
    detail({});
    EXPECT_EQ(heard(), switched("cec active source 1000"));
    detail({});
    map_address("http://map/");
    EXPECT_EQ(heard().size(), 1U);
    wire::detail_alert end;
    end.text = "";
    fake::state.calls.clear();
    detail(end);
    EXPECT_EQ(heard(), switched("cec active source 2000"));
}

TEST_F(alerts, ending_message_while_idle_hands_the_television_back_too) {
    display("");
    EXPECT_EQ(heard(), std::vector<std::string>{"cec active source 2000"});
    wire::detail_alert end;
    end.text = "";
    detail(end);
    EXPECT_EQ(heard().size(), 2U);
}

TEST_F(alerts, message_with_another_flag_while_idle_leaves_the_television_alone) {
    display("NOTICE", 0);
    wire::detail_alert notice;
    notice.flag = 0;
    detail(notice);
    EXPECT_TRUE(heard().empty());
}

TEST_F(alerts, television_is_switched_before_the_document_is_written) {
    display("FIRE");
    const std::vector<std::string> &made = fake::state.calls;
    const auto switched = std::find(made.begin(), made.end(), "cec active source 1000");
    const auto written = std::find_if(made.begin(), made.end(), [](const std::string &call) {
        return call.starts_with("open /dev/shm/alerts.json");
    });
    EXPECT_LT(switched, written);
}

// The station page.

TEST_F(alerts, alert_brings_the_browser_back_to_the_station_page) {
    for (const auto &handle : {+[] { display("FIRE"); }, +[] { detail({}); }}) {
        have_url("http://example/");
        fake::state.calls.clear();
        handle();
        EXPECT_EQ(biseqcstr(url, "http://127.0.0.1/station_web/"), 1);
        EXPECT_EQ(fake::state.calls_of("fork").size(), 1U);
    }
}

TEST_F(alerts, station_page_already_shown_is_left_alone) {
    display("FIRE");
    detail({});
    EXPECT_TRUE(fake::state.calls_of("fork").empty());
}

TEST_F(alerts, almost_the_station_page_is_another_page) {
    for (const char *address : {"http://127.0.0.1/station_web", "http://127.0.0.1/station_web/x",
                                "http://127.0.0.1/Station_web/"}) {
        have_url(address);
        display("NOTICE", 0);
        EXPECT_EQ(biseqcstr(url, "http://127.0.0.1/station_web/"), 1);
    }
    EXPECT_EQ(fake::state.calls_of("fork").size(), 3U);
}

TEST_F(alerts, alert_without_any_page_starts_the_browser) {
    bdestroy(url);
    url = nullptr;
    display("FIRE");
    EXPECT_EQ(biseqcstr(url, "http://127.0.0.1/station_web/"), 1);
    EXPECT_EQ(fake::state.calls_of("fork").size(), 1U);
}

TEST_F(alerts, ignored_message_still_brings_the_station_page_back) {
    display("FIRE");
    have_url("http://example/");
    display("", 0);
    EXPECT_EQ(biseqcstr(url, "http://127.0.0.1/station_web/"), 1);
}

TEST_F(alerts, hdtv_alert_does_nothing) {
    handle_hdtv_alert(read_hdtv_alert(wire::message_of(wire::hdtv_alert("text", 60))));
    EXPECT_TRUE(fake::state.calls.empty());
    EXPECT_EQ(output().find("text"), std::string::npos);
}

} // namespace
