#include "tools/gatewayctl/page.h"

#include "tools/gatewayctl/date.h"

#include "gatewayctl_test.h"

#include <ctime>
#include <gtest/gtest.h>
#include <string>

namespace {

page_settings of_address(const std::string &address, bool is_framed = false) {
    page_settings settings;
    settings.address = address;
    settings.is_framed = is_framed;
    return settings;
}

std::string refusal_of(const page_settings &settings) {
    return refusal([&settings] { page_address(settings); });
}

TEST(page, is_an_address_as_it_is) {
    EXPECT_EQ(page_address(of_address("http://x/a?b=c d")), "http://x/a?b=c d");
}

TEST(page, may_be_blank_or_one_of_the_units_own) {
    page_settings settings;
    settings.is_blank = true;
    EXPECT_EQ(page_address(settings), "");
    settings.is_blank = false;
    settings.is_card = true;
    EXPECT_EQ(page_address(settings), "http://127.0.0.1/station_web/card.html");
    settings.is_card = false;
    settings.is_status = true;
    EXPECT_EQ(page_address(settings), "http://127.0.0.1/station_web/status.html");
}

TEST(page, is_one_thing_at_a_time) {
    const std::string words = "page takes one of an address, --blank, --card and --status";
    EXPECT_EQ(refusal_of({}), words);
    page_settings settings = of_address("http://x");
    settings.is_card = true;
    EXPECT_EQ(refusal_of(settings), words);
    settings.address = "";
    settings.is_status = true;
    EXPECT_EQ(refusal_of(settings), words);
    settings.is_card = settings.is_status = false;
    settings.is_blank = settings.is_framed = true;
    EXPECT_EQ(refusal_of(settings), "--framed takes an address");
}

TEST(page, in_a_frame_is_percent_encoded) {
    EXPECT_EQ(page_address(of_address("http://x/a-._~Zz09?b=c&d=\xc3\xa4", true)),
              "http://127.0.0.1/station_web/guest.html?u="
              "http%3A%2F%2Fx%2Fa-._~Zz09%3Fb%3Dc%26d%3D%C3%A4");
    EXPECT_EQ(page_address(of_address("https://x", true)),
              "http://127.0.0.1/station_web/guest.html?u=https%3A%2F%2Fx");
}

TEST(page, that_no_frame_can_hold_is_refused) {
    EXPECT_EQ(refusal_of(of_address("ftp://x", true)),
              "--framed takes an http:// or https:// address, not \"ftp://x\"");
    EXPECT_EQ(refusal_of(of_address("http://127.0.0.1/station_web/", true)),
              "the station page cannot be framed: omit --framed");
}

TEST(page, in_a_frame_has_a_longest_address) {
    const std::string start = "http://x/"; // 17 bytes when it is encoded
    EXPECT_EQ(refusal_of(of_address(start + std::string(3000 - 17, 'a'), true)), "");
    EXPECT_EQ(refusal_of(of_address(start + std::string(3001 - 17, 'a'), true)),
              "the address has 3001 bytes when it is percent-encoded; --framed takes at most 3000");
}

TEST(date, is_seconds_that_every_date_command_takes) {
    const std::time_t before = std::time(nullptr);
    const std::string date = date_now();
    ASSERT_EQ(date.front(), '@');
    EXPECT_GE(std::stoll(date.substr(1)), before);
    EXPECT_LE(std::stoll(date.substr(1)), std::time(nullptr));
}

} // namespace
