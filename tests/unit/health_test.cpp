#include "hdtv/health.h"

#include "service_test.h"

#include "bstrlib/bstr_owner.h"

#include <algorithm>

namespace {

using fake::state;

constexpr const char *mode_query = "/usr/bin/tvservice -s";
constexpr const char *interface_query = "/sbin/ifconfig";
constexpr const char *usb_query = "/usr/bin/lsusb";

class health : public service_test {
  protected:
    void SetUp() override {
        service_test::SetUp();
        have_url(station_page);
        state.keeps_children = true;
        state.printed[interface_query] = "eth0: flags=4163<UP>\n";
    }

    static std::string mode_of(const std::string &printed) {
        state.printed[mode_query] = printed;
        const bstr_owner mode(get_fb_resolution());
        return mode ? bstr_text(mode.get()) : "(null)";
    }
    static void have_mode(const std::string &mode) {
        state.printed[mode_query] = "state 0x12001a [HDMI CEA (16)], " + mode + " @ 60Hz\n";
    }
    static std::vector<std::string> tick() {
        state.calls.clear();
        fb_time_fn(-1, 0, nullptr);
        return state.executed();
    }
};

TEST_F(health, mode_is_the_text_between_comma_and_blank) {
    EXPECT_EQ(mode_of("state 0x12001a [HDMI CEA (4) RGB lim 16:9], 1280x720 @ 60Hz\n"), "1280x720");
    EXPECT_EQ(mode_of("first line\nstate 0x1 [x], 1920x1080 y\nlast line\n"), "1920x1080");
}

TEST_F(health, line_without_a_usable_mode_gives_none) {
    for (const char *line :
         {"", "\n", "state 0x12001a [HDMI]\n", "1280x720, 640x480 x\n", "state 0x1 [x], 1280x720\n",
          "state 0x1 [x],  1280x720 y\n", "a, 640x480 state 0x1\n", "state 0x1 [x],1280x720 y\n"}) {
        EXPECT_EQ(mode_of(line), "(null)") << line;
    }
}

TEST_F(health, mode_has_at_most_10_characters) {
    EXPECT_EQ(mode_of("state 0x1, 1234567890 x\n"), "1234567890");
    EXPECT_EQ(mode_of("state 0x1, 12345678901 x\n"), "(null)");
}

TEST_F(health, last_matching_line_wins) {
    EXPECT_EQ(mode_of("state 0x1, 640x480 x\nstate 0x1, 720x480 x\nstate 0x1 none\n"), "720x480");
}

TEST_F(health, query_that_cannot_be_started_gives_none) {
    const bstr_owner mode(get_fb_resolution());
    EXPECT_EQ(mode.get(), nullptr);
}

TEST_F(health, line_longer_than_the_buffer_is_taken_in_pieces) {
    EXPECT_EQ(mode_of(std::string(4095, 'x') + "state 0x1, 640x480 x\n"), "640x480");
    EXPECT_EQ(mode_of(std::string(4090, 'x') + "state 0x1, 640x480 x\n"), "(null)");
}

TEST_F(health, every_query_is_ended) {
    have_mode("1920x1080");
    tick();
    EXPECT_EQ(std::ranges::count(state.calls, "pclose"), 2); // of the mode and of the interfaces
}

TEST_F(health, good_mode_is_only_printed) {
    have_mode("1920x1080");
    EXPECT_TRUE(tick().empty());
    EXPECT_EQ(output(), "Current Output Resolution: \"1920x1080\"\n");
}

TEST_F(health, low_mode_resets_the_display_and_then_the_browser) {
    for (const char *mode : {"640x480", "720x480"}) {
        have_mode(mode);
        const std::vector<std::string> executed = tick();
        ASSERT_EQ(executed.size(), 3U);
        EXPECT_EQ(executed[0], "/usr/bin/tvservice: tvservice -o");
        EXPECT_EQ(executed[1], "/usr/bin/tvservice: tvservice -p");
        EXPECT_TRUE(executed[2].starts_with("/usr/bin/qt-webkit-kiosk:"));
        std::vector<std::string> order;
        for (const std::string &call : state.calls) {
            if (call == "fork" || call == "wait" || call.starts_with("sleep")) {
                order.push_back(call);
            }
        }
        EXPECT_EQ(order, (std::vector<std::string>{"fork", "wait", "sleep 1", "fork", "wait",
                                                   "sleep 2", "fork"}));
    }
}

TEST_F(health, low_mode_without_a_page_starts_no_browser) {
    bdestroy(url);
    url = nullptr;
    have_mode("640x480");
    EXPECT_EQ(tick().size(), 2U);
    EXPECT_EQ(state.calls_of("sleep"), std::vector<std::string>{"sleep 1"});
}

TEST_F(health, comparison_of_the_mode_is_exact) {
    for (const char *mode : {"640X480", "640x4800", "1640x480"}) {
        have_mode(mode);
        EXPECT_TRUE(tick().empty()) << mode;
    }
}

TEST_F(health, eth0_on_any_line_counts_as_present_and_usb_is_not_asked) {
    for (const char *printed : {"eth0: up\n", "br0: over eth0\n", "x\nveth01\ny\n"}) {
        state.printed[interface_query] = printed;
        EXPECT_TRUE(tick().empty());
        EXPECT_TRUE(state.calls_of(std::string("popen ") + usb_query).empty());
    }
    EXPECT_EQ(output(), "");
    state.printed[interface_query] = "eth0\nlo\neth0:1\n";
    EXPECT_EQ(eth0_is_present(), 2);
}

TEST_F(health, missing_eth0_without_the_controller_is_only_told) {
    state.printed[interface_query] = "lo: up\n";
    state.printed[usb_query] = "Bus 001 Device 001: ID 1d6b:0002 hub\n";
    EXPECT_TRUE(tick().empty());
    EXPECT_EQ(output(), "eth0 is missing\n");
}

TEST_F(health, missing_eth0_with_the_controller_restarts_networking_each_time) {
    state.printed[interface_query] = "";
    state.printed[usb_query] = "Bus 001 Device 003: ID 0424:ec00 x\nBus 001: ID 0424:9512 y\n";
    EXPECT_EQ(nic_is_present(), 2U);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(tick(), std::vector<std::string>{"/etc/init.d/S40network: S40network restart"});
        EXPECT_EQ(state.calls_of("wait").size(), 1U);
    }
    EXPECT_TRUE(output().starts_with(
        "eth0 is missing\nUSB NIC is present, restarting networking\neth0 is missing\n"));
}

TEST_F(health, interface_list_that_cannot_be_had_restarts_nothing) {
    state.printed.erase(interface_query);
    state.printed[usb_query] = "ID 0424:ec00\n";
    EXPECT_EQ(eth0_is_present(), -1);
    EXPECT_TRUE(tick().empty());
    EXPECT_EQ(output(), "");
}

TEST_F(health, usb_list_that_cannot_be_had_counts_as_a_controller) {
    state.printed[interface_query] = "lo: up\n";
    EXPECT_EQ(nic_is_present(), ~0U);
    EXPECT_EQ(tick().size(), 1U);
    state.printed[usb_query] = "";
    EXPECT_TRUE(tick().empty());
}

TEST_F(health, tick_arms_itself_for_another_30_seconds_at_its_end) {
    start_fb_time_timer();
    EXPECT_EQ(state.events[0].fd, -1);
    EXPECT_EQ(state.events[0].flags, 0);
    EXPECT_EQ(state.events[0].callback, &fb_time_fn);
    EXPECT_EQ(state.calls.back(), "event_add 30 s");
    tick();
    EXPECT_EQ(state.calls.back(), "event_add 30 s");
}

} // namespace
