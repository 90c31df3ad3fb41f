#include "hdtv/watchdog.h"

#include "service_test.h"

#include "hdtv/dispatch.h"

#include <fcntl.h>

namespace {

using fake::state;

class watchdog : public service_test {
  protected:
    void SetUp() override {
        service_test::SetUp();
        state.files["/dev/watchdog"] = "";
    }

    static std::vector<std::string> written() {
        return state.calls_of("write ");
    }

    static void have_page_seen(int seconds_ago) {
        state.files["/dev/shm/web_watchdog"] = "";
        state.modified["/dev/shm/web_watchdog"] = state.now - seconds_ago;
    }

    static void receive_message(const std::string &bytes = std::string("\0", 1)) {
        dispatch_message(wire::message_of(bytes), channel::tcp, {});
    }
};

TEST_F(watchdog, is_opened_armed_for_15_seconds_kicked_and_kept_from_children) {
    wdt_seconds = 5;
    configure_watchdog();
    EXPECT_EQ(state.calls, (std::vector<std::string>{
                               "open /dev/watchdog " + std::to_string(O_RDWR | O_NOCTTY),
                               "close-on-exec 1000", "WDIOC_SETTIMEOUT 15", "write 1000  "}));
    EXPECT_EQ(wdt_seconds, 900);
    EXPECT_EQ(output(), "");
}

TEST_F(watchdog, that_is_missing_is_told_and_leaves_the_budget) {
    state.files.clear();
    wdt_seconds = 5;
    configure_watchdog();
    EXPECT_EQ(output(), "Can't open /dev/watchdog\n");
    EXPECT_EQ(wdt_seconds, 5);
    handle_watchdog();
    EXPECT_EQ(wdt_seconds, 4);
    EXPECT_TRUE(written().empty());
}

TEST_F(watchdog, without_traffic_gets_the_start_up_kick_and_900_more_then_none) {
    configure_watchdog();
    for (int second = 0; second < 2000; ++second) {
        handle_watchdog();
    }
    EXPECT_EQ(written().size(), 901U);
    EXPECT_EQ(state.files["/dev/watchdog"], std::string(901, ' '));
    EXPECT_EQ(wdt_seconds, 0);
}

TEST_F(watchdog, message_after_899_seconds_fills_the_budget_again) {
    configure_watchdog();
    has_ip_address = true;
    for (int second = 0; second < 899; ++second) {
        handle_watchdog();
    }
    EXPECT_EQ(wdt_seconds, 1);
    receive_message();
    EXPECT_EQ(wdt_seconds, 900);
}

TEST_F(watchdog, message_fills_an_empty_budget) {
    has_ip_address = true;
    wdt_seconds = 0;
    receive_message();
    EXPECT_EQ(wdt_seconds, 900);
}

TEST_F(watchdog, every_type_of_message_fills_the_budget_on_both_channels) {
    has_ip_address = true;
    have_url(station_page);
    for (int type = 0; type < 256; ++type) {
        for (const channel from : {channel::tcp, channel::udp}) {
            wdt_seconds = 7;
            const gateway_message message =
                wire::message_of(std::string(1, static_cast<char>(type)));
            dispatch_message(message, from, {});
            EXPECT_EQ(wdt_seconds, 900) << type;
        }
    }
}

TEST_F(watchdog, without_an_address_no_message_fills_the_budget) {
    have_page_seen(0);
    wdt_seconds = 7;
    receive_message();
    EXPECT_EQ(wdt_seconds, 7);
}

TEST_F(watchdog, page_without_a_liveness_file_counts_as_alive) {
    EXPECT_EQ(check_web_watchdog(), 1);
}

TEST_F(watchdog, page_seen_300_seconds_ago_is_alive_and_301_seconds_ago_stale) {
    has_ip_address = true;
    for (const auto &[age, budget] : {std::pair{0, 900}, {300, 900}, {301, 7}, {100000, 7}}) {
        have_page_seen(age);
        wdt_seconds = 7;
        receive_message();
        EXPECT_EQ(wdt_seconds, budget) << age;
    }
}

TEST_F(watchdog, page_seen_in_the_future_is_alive) {
    have_page_seen(-5000);
    EXPECT_EQ(check_web_watchdog(), 1);
}

TEST_F(watchdog, on_descriptor_0_is_never_kicked) {
    state.next_descriptor = 0;
    configure_watchdog();
    EXPECT_EQ(wdt_fd, 0);
    handle_watchdog();
    EXPECT_TRUE(written().empty());
    EXPECT_EQ(wdt_seconds, 899);
}

TEST_F(watchdog, is_disarmed_by_a_v_and_not_closed) {
    configure_watchdog();
    disable_watchdog();
    EXPECT_EQ(state.calls.back(), "write 1000 V");
}

} // namespace
