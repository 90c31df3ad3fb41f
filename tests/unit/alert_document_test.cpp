#include "hdtv/alert_document.h"

#include "service_test.h"

#include <cstdlib>
#include <ctime>
#include <fcntl.h>

namespace {

class alert_document : public service_test {
  protected:
    static void write_area(const char *area) {
        write_alert_json("display_alert", 1, 0, 0, 0, 0, area, "", "");
    }
    static std::string log() {
        return fake::state.files["/tmp/alerts.log"];
    }
};

TEST_F(alert_document, holds_exactly_the_members_in_order_and_no_newline) {
    write_alert_json("hdtv_alert", 1, 1000, 60, 30, 1, "FIRE", "http://map",
                     R"({"unit":"E1","color":"2"})");
    EXPECT_EQ(document(),
              R"([{"alert_type":"hdtv_alert", "show_turnout_timer":"1", "alert_time":"1000", )"
              R"("turnout_end":"60", "turnout_zero":"30", "turnout_reverse":"1", )"
              R"("alert_expiration":"1120", "alert_area":"FIRE", "map_url":"http://map", )"
              R"("units":[{"unit":"E1","color":"2"}]}])");
}

TEST_F(alert_document, is_printed) {
    write_area("FIRE");
    EXPECT_EQ(output(), "Writing JSON: " + document() + "\n");
}

TEST_F(alert_document, escapes_each_special_character) {
    write_area("& < > \" \\ / \b \f \n \r \t");
    EXPECT_EQ(member("alert_area"), R"(&amp; &lt; &gt; &quot; \\ \/ \b \f \n \r \t)");
}

TEST_F(alert_document, escapes_in_the_order_that_escapes_nothing_twice) {
    write_area("&lt;");
    EXPECT_EQ(member("alert_area"), "&amp;lt;");
    write_area("<\"");
    EXPECT_EQ(member("alert_area"), "&lt;&quot;");
    write_area("\\n\n\\/");
    EXPECT_EQ(member("alert_area"), R"(\\n\n\\\/)");
}

TEST_F(alert_document, passes_every_other_byte_through) {
    std::string area;
    for (int byte = 1; byte < 256; ++byte) {
        if (std::string("&<>\"\\/\b\f\n\r\t").find(static_cast<char>(byte)) == std::string::npos) {
            area += static_cast<char>(byte);
        }
    }
    write_area(area.c_str());
    EXPECT_EQ(member("alert_area"), area);
}

TEST_F(alert_document, leaves_map_url_and_units_unescaped) {
    write_alert_json("hdtv_alert", 1, 0, 0, 0, 0, "", "http://m/?a&\"b", "<&/>");
    EXPECT_NE(document().find(R"("map_url":"http://m/?a&"b", "units":[<&/>]}])"),
              std::string::npos);
}

TEST_F(alert_document, expires_a_turnout_timer_after_its_start) {
    write_alert_json("display_alert", 0, 0, 0, 0, 0, "", "", "");
    EXPECT_EQ(member("alert_expiration"), "120");
    turnout_timer = 90;
    write_alert_json("display_alert", 0, 1'700'000'000, 0, 0, 0, "", "", "");
    EXPECT_EQ(member("alert_expiration"), "1700000090");
}

TEST_F(alert_document, expiration_wraps_at_32_bits) {
    write_alert_json("display_alert", 0, 0xffffffff, 0xffffffff, 0xffffffff, 0, "", "", "");
    EXPECT_EQ(member("alert_time"), "4294967295");
    EXPECT_EQ(member("turnout_end"), "4294967295");
    EXPECT_EQ(member("turnout_zero"), "4294967295");
    EXPECT_EQ(member("alert_expiration"), "119");
}

TEST_F(alert_document, flag_and_reverse_bytes_are_unsigned) {
    write_alert_json("hdtv_alert", 255, 0, 0, 0, 255, "", "", "");
    EXPECT_EQ(member("show_turnout_timer"), "255");
    EXPECT_EQ(member("turnout_reverse"), "255");
}

TEST_F(alert_document, holds_a_text_of_any_length) {
    const std::string area(4000, '&');
    write_area(area.c_str());
    EXPECT_EQ(member("alert_area").size(), 5 * area.size());
}

TEST_F(alert_document, fits_its_room_at_its_longest) {
    const std::string area(4095, '"');
    const std::string map(4095, 'm');
    const std::string list(unit_list_size - 1, 'u');
    constexpr std::uint32_t number = 0xffffffff;
    write_alert_json("display_alert", 255, number, number, number, 255, area.c_str(), map.c_str(),
                     list.c_str());
    std::string escaped;
    for (std::size_t i = 0; i < area.size(); ++i) {
        escaped += "&quot;";
    }
    EXPECT_TRUE(document().ends_with("\"alert_area\":\"" + escaped + "\", \"map_url\":\"" + map +
                                     "\", \"units\":[" + list + "]}]"));
    EXPECT_EQ(output(), "Writing JSON: " + document() + "\n");
    EXPECT_TRUE(log().ends_with(": " + document() + "\n"));
}

TEST_F(alert_document, that_is_too_long_is_cut_where_its_room_ends) {
    const std::string area(8000, '"');
    write_area(area.c_str());
    EXPECT_EQ(document().size(), 36U * 1024);
    EXPECT_EQ(output(), "Writing JSON: " + document() + "\n");
    write_area("SHORT");
    EXPECT_TRUE(document().ends_with("\"alert_area\":\"SHORT\", \"map_url\":\"\", \"units\":[]}]"));
}

TEST_F(alert_document, that_is_filled_by_a_plain_text_is_cut_there_too) {
    const std::string area(40'000, 'a');
    write_area(area.c_str());
    write_area(area.c_str()); // after the first one's line feed
    EXPECT_EQ(document().size(), 36U * 1024);
    EXPECT_TRUE(document().ends_with("aaa"));
}

TEST_F(alert_document, escapes_after_and_between_plain_text) {
    write_area("1200 MAIN ST/CROSS OAK & ELM, \"A\"");
    EXPECT_EQ(member("alert_area"), R"(1200 MAIN ST\/CROSS OAK &amp; ELM, &quot;A&quot;)");
}

TEST_F(alert_document, takes_a_text_that_no_zero_byte_ends) {
    const std::string text = "FIRE\"//";
    write_alert_document(
        {.type = "display_alert", .alert_area = std::string_view(text).substr(0, 4)});
    EXPECT_EQ(member("alert_area"), "FIRE");
}

TEST_F(alert_document, is_rewritten_in_place_with_mode_0777) {
    write_area("A LONGER TEXT");
    write_area("SHORT");
    EXPECT_TRUE(document().ends_with("\"units\":[]}]"));
    EXPECT_EQ(fake::state.calls_of("open /dev/shm/alerts.json").front(),
              "open /dev/shm/alerts.json " + std::to_string(O_WRONLY | O_CREAT | O_TRUNC));
    EXPECT_EQ(fake::state.opened_with_mode["/dev/shm/alerts.json"], 0777);
}

TEST_F(alert_document, is_logged_with_the_local_time) {
    setenv("TZ", "UTC-1", 1); // one hour east of Greenwich
    tzset();
    fake::state.now = 1'709'618'649; // 5 March 2024, 06:04:09 in Greenwich
    write_area("FIRE");
    unsetenv("TZ");
    tzset();
    EXPECT_EQ(log(), "24-03-05 07:04:09: " + document() + "\n");
    EXPECT_EQ(fake::state.opened_with_mode["/tmp/alerts.log"], 0777);
    EXPECT_EQ(fake::state.calls_of("open /tmp/alerts.log").front(),
              "open /tmp/alerts.log " + std::to_string(O_RDWR | O_CREAT | O_APPEND));
}

TEST_F(alert_document, log_grows_by_a_line_each_time) {
    write_area("ONE");
    const std::string first = log();
    write_area("TWO");
    const std::string both = log();
    EXPECT_TRUE(both.starts_with(first));
    EXPECT_EQ(std::count(both.begin(), both.end(), '\n'), 2);
}

TEST_F(alert_document, is_not_logged_when_logging_is_off) {
    log_alerts = false;
    write_area("FIRE");
    EXPECT_FALSE(fake::state.files.contains("/tmp/alerts.log"));
}

TEST_F(alert_document, that_cannot_be_opened_is_still_printed_and_logged) {
    fake::state.failing = {"open /dev/shm"};
    write_area("FIRE");
    EXPECT_NE(output().find("FIRE"), std::string::npos);
    EXPECT_NE(log().find("FIRE"), std::string::npos);
}

TEST_F(alert_document, of_an_idle_station_shows_one_line) {
    write_status_document("No Network Connection");
    EXPECT_EQ(document(),
              R"([{"alert_type":"display_alert", "show_turnout_timer":"0", "alert_time":"0", )"
              R"("turnout_end":"0", "turnout_zero":"0", "turnout_reverse":"0", )"
              R"("alert_expiration":"120", "alert_area":"No Network Connection", "map_url":"", )"
              R"("units":[]}])");
}

} // namespace
