#include "hdtv/clock.h"

#include "service_test.h"

#include <cstdlib>
#include <ctime>

namespace {

using fake::state;

class clock_tick : public service_test {
  protected:
    void SetUp() override {
        service_test::SetUp();
        state.failing = {"connect"}; // no proxy
        have_url(station_page);
        has_ip_address = true;
    }

    static void tick() {
        state.calls.clear();
        clock_fn(-1, 0, nullptr);
    }
    static void have_process(int pid) {
        state.files["/proc/" + std::to_string(pid)] = "";
    }
    static bool restarted() {
        return !state.calls_of("fork").empty();
    }
};

TEST_F(clock_tick, starts_a_browser_again_whose_process_is_gone) {
    kiosk_pid = 77;
    tick();
    EXPECT_EQ(state.calls_of("stat /proc"), std::vector<std::string>{"stat /proc/77"});
    EXPECT_TRUE(restarted());
    EXPECT_EQ(biseqcstr(url, station_page), 1);
}

TEST_F(clock_tick, leaves_a_browser_alone_that_has_its_entry) {
    kiosk_pid = 77; // a zombie's entry looks just like this
    have_process(77);
    tick();
    EXPECT_FALSE(restarted());
}

TEST_F(clock_tick, takes_a_changed_time_zone_within_a_minute) {
    const auto logged = [] {
        state.files.erase("/tmp/alerts.log");
        write_status_document("10.87.33.50");
        return state.files["/tmp/alerts.log"].substr(0, 17);
    };
    state.now = 1'709'618'649; // 5 March 2024, 06:04:09 in Greenwich
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(logged(), "24-03-05 06:04:09");
    setenv("TZ", "UTC-3", 1); // three hours east of Greenwich
    EXPECT_EQ(logged(), "24-03-05 06:04:09");
    for (int second = 0; second < 60; ++second) {
        tick();
    }
    EXPECT_EQ(logged(), "24-03-05 09:04:09");
    unsetenv("TZ");
    tzset();
}

TEST_F(clock_tick, ignores_any_other_failure_to_look) {
    kiosk_pid = 77;
    state.failing.emplace_back("stat /proc");
    tick();
    EXPECT_FALSE(restarted());
}

TEST_F(clock_tick, does_not_look_without_a_page_or_a_browser) {
    for (const int pid : {0, -1, -77}) {
        kiosk_pid = pid;
        tick();
        EXPECT_TRUE(state.calls_of("stat").empty());
        EXPECT_FALSE(restarted());
    }
    bdestroy(url);
    url = nullptr;
    kiosk_pid = 77;
    tick();
    EXPECT_TRUE(state.calls_of("stat").empty());
}

TEST_F(clock_tick, spends_a_kick_of_the_budget_whatever_else_happens) {
    wdt_seconds = 10;
    tick();
    EXPECT_EQ(wdt_seconds, 9);
    kiosk_pid = 77; // the browser is restarted
    tick();
    EXPECT_EQ(wdt_seconds, 8);
    has_ip_address = false; // still no address
    tick();
    EXPECT_EQ(wdt_seconds, 7);
}

TEST_F(clock_tick, that_finds_no_address_changes_nothing) {
    has_ip_address = false;
    have_address("");
    tick();
    EXPECT_FALSE(has_ip_address);
    EXPECT_EQ(document(), "");
    EXPECT_FALSE(restarted());
}

TEST_F(clock_tick, first_address_is_shown_and_the_browser_restarted_once) {
    has_ip_address = false;
    have_address("192.168.1.5");
    use_oru_proxy = true;
    tick();
    EXPECT_TRUE(has_ip_address);
    EXPECT_FALSE(use_oru_proxy);
    EXPECT_TRUE(state.calls_of("connect").empty()); // the proxy is not asked
    EXPECT_EQ(state.calls_of("fork").size(), 1U);
    EXPECT_EQ(member("alert_area"), "192.168.1.5");
    EXPECT_EQ(member("alert_time"), "0");
    // The browser before the document.
    const auto fork = std::find(state.calls.begin(), state.calls.end(), "fork");
    EXPECT_TRUE(std::any_of(fork, state.calls.end(), [](const std::string &call) {
        return call.starts_with("open /dev/shm/alerts.json");
    }));
    have_address("192.168.1.6");
    have_process(kiosk_pid);
    tick();
    EXPECT_FALSE(restarted());
    EXPECT_EQ(member("alert_area"), "192.168.1.5");
}

TEST_F(clock_tick, first_address_on_the_gateway_network_tests_the_proxy) {
    has_ip_address = false;
    have_address("10.87.33.50");
    state.failing.clear();
    tick();
    EXPECT_TRUE(use_oru_proxy);
    EXPECT_EQ(output().substr(0, output().find('\n')), "Proxy listening on 10.87.33.1:3128");
}

TEST_F(clock_tick, address_that_only_contains_the_gateway_network_does_not) {
    has_ip_address = false;
    have_address("110.87.33.4");
    state.failing.clear();
    tick();
    EXPECT_FALSE(use_oru_proxy);
    EXPECT_TRUE(state.calls_of("connect").empty());
}

TEST_F(clock_tick, first_address_without_a_page_starts_no_browser) {
    has_ip_address = false;
    bdestroy(url);
    url = nullptr;
    have_address("192.168.1.5");
    tick();
    EXPECT_FALSE(restarted());
    EXPECT_EQ(member("alert_area"), "192.168.1.5");
}

TEST_F(clock_tick, arms_itself_for_another_second_at_its_end) {
    start_clock_timer();
    ASSERT_EQ(state.events.size(), 1U);
    EXPECT_EQ(state.events[0].fd, -1);
    EXPECT_EQ(state.events[0].flags, 0);
    EXPECT_EQ(state.events[0].callback, &clock_fn);
    EXPECT_EQ(state.calls.back(), "event_add 1 s");
    tick();
    EXPECT_EQ(state.calls.back(), "event_add 1 s");
}

TEST_F(clock_tick, power_tick_asks_the_television_and_arms_itself_for_five_seconds) {
    start_power_timer();
    EXPECT_EQ(state.events[0].callback, &power_fn);
    EXPECT_EQ(state.calls.back(), "event_add 5 s");
    state.calls.clear();
    power_fn(-1, 0, nullptr);
    EXPECT_EQ(state.calls, (std::vector<std::string>{"cec send 0: 8F", "event_add 5 s"}));
}

} // namespace
