#include "hdtv/udp_channel.h"

#include "service_test.h"

namespace {

using fake::state;

constexpr int udp_socket = 6;
const std::string mac("\x00\x11\x22\xAA\xBB\xCC", 6);
const std::string reply = "\x02" + mac + "\x0C\x2F";
const std::string date_request = "\x27" + mac;
const std::string settings_request = "\x2F" + mac;

class udp_channel : public service_test {
  protected:
    void SetUp() override {
        service_test::SetUp();
        have_address("10.87.33.50");
        have_url(station_page);
        has_ip_address = true;
    }

    static void receive(const std::string &datagram, const std::string &sender = "10.87.33.21") {
        state.datagrams.push_back({sender, datagram});
        rollcall_fn(udp_socket, 0, nullptr);
    }
    static std::vector<std::string> opened() {
        return state.calls_of("socket tcp");
    }
};

TEST_F(udp_channel, message_is_as_long_as_its_datagram) {
    turnout_timer = 120;
    receive(wire::display_alert_with_turnout("FIRE", 0x0102));
    EXPECT_EQ(turnout_timer, 0x0102); // its trailer counts by the exact length
}

TEST_F(udp_channel, receives_one_datagram_with_room_for_4096_bytes) {
    receive(std::string(1, '\0'));
    EXPECT_EQ(state.calls.front(), "recvfrom 6 4096 0 16");
}

TEST_F(udp_channel, empty_datagram_shows_that_the_gateway_is_there) {
    wdt_seconds = 1;
    receive("");
    EXPECT_EQ(wdt_seconds, 900);
}

TEST_F(udp_channel, roll_call_before_date_and_settings_sends_three_records_in_order) {
    receive(wire::roll_call());
    EXPECT_EQ(state.sent, (std::vector<std::string>{reply, date_request, settings_request}));
    EXPECT_EQ(state.calls_of("connect"), std::vector<std::string>(3, "connect 10.87.33.21:5000"));
    EXPECT_EQ(opened().size(), 3U);
    EXPECT_EQ(state.calls_of("close 10").size(), 6U); // three for the records, three for eth0
}

TEST_F(udp_channel, roll_call_asks_only_for_what_has_not_arrived) {
    got_set_date_packet = true;
    receive(wire::roll_call());
    EXPECT_EQ(state.sent, (std::vector<std::string>{reply, settings_request}));
    state.sent.clear();
    got_hdtv_settings_packet = true;
    receive(wire::roll_call());
    EXPECT_EQ(state.sent, std::vector<std::string>{reply});
    state.sent.clear();
    got_set_date_packet = false;
    receive(wire::roll_call());
    EXPECT_EQ(state.sent, (std::vector<std::string>{reply, date_request}));
}

TEST_F(udp_channel, date_and_settings_by_udp_end_the_requests) {
    receive(wire::set_date("now"));
    receive(std::string("1\x01", 2));
    receive(wire::roll_call());
    EXPECT_EQ(state.sent.back(), reply);
}

TEST_F(udp_channel, roll_call_that_meets_a_closed_port_stops_and_leaves_its_socket) {
    state.failing = {"connect"};
    wdt_seconds = 7;
    receive(wire::roll_call());
    EXPECT_TRUE(state.sent.empty());
    EXPECT_EQ(opened().size(), 1U);
    EXPECT_EQ(state.calls_of("connect").size(), 1U);
    EXPECT_EQ(state.calls_of("close-on-exec").size(), 1U); // open, but no child inherits it
    EXPECT_EQ(wdt_seconds, 900);                           // the web watchdog step still runs
}

TEST_F(udp_channel, roll_call_that_fails_at_a_request_sends_nothing_after_it) {
    state.failing = {"connect#2"};
    receive(wire::roll_call());
    EXPECT_EQ(state.sent, std::vector<std::string>{reply});
    EXPECT_EQ(opened().size(), 2U);
}

TEST_F(udp_channel, roll_call_that_fails_at_the_last_request_leaves_its_socket) {
    state.failing = {"connect#3"};
    receive(wire::roll_call());
    EXPECT_EQ(state.sent, (std::vector<std::string>{reply, date_request}));
    EXPECT_EQ(state.calls_of("close-on-exec").size(), 1U);
}

TEST_F(udp_channel, hardware_address_is_fetched_afresh_for_each_record) {
    receive(wire::roll_call());
    EXPECT_EQ(state.calls_of("socket udp").size(), 3U);
}

TEST_F(udp_channel, reply_goes_to_the_sender_and_never_to_the_known_gateway) {
    current_gateway = bfromcstr("10.87.33.20");
    receive(wire::roll_call(), "10.87.33.1");
    EXPECT_EQ(state.calls_of("connect").front(), "connect 10.87.33.1:5000");
    EXPECT_EQ(biseqcstr(current_gateway, "10.87.33.20"), 1);
}

TEST_F(udp_channel, sender_never_becomes_the_gateway) {
    receive(wire::roll_call());
    receive(wire::set_date("now"));
    EXPECT_EQ(current_gateway, nullptr);
    EXPECT_FALSE(state.files.contains("/dev/shm/current_gateway"));
}

TEST_F(udp_channel, failed_receive_does_nothing) {
    wdt_seconds = 7;
    state.failing = {"recvfrom"};
    receive(wire::roll_call());
    EXPECT_EQ(state.calls.size(), 1U);
    EXPECT_EQ(wdt_seconds, 7);
}

TEST_F(udp_channel, stop_turnout_and_map_address_do_nothing_here) {
    wdt_seconds = 7;
    receive(wire::stop_turnout());
    receive(wire::map_address("http://map/"));
    EXPECT_EQ(document(), "");
    EXPECT_EQ(wdt_seconds, 900);
}

TEST_F(udp_channel, text_of_a_full_datagram_ends_at_the_end_of_the_buffer) {
    receive(wire::page_address(std::string(4095, 'x')));
    EXPECT_EQ(url->slen, 4095);
    receive(wire::page_address(std::string(5000, 'y')));
    EXPECT_EQ(url->slen, 4095);
    receive(std::string("\x03\x01\0\0\0\0", 6) + std::string(4090, 'z'));
    EXPECT_EQ(member("alert_area"), std::string(4090, 'z'));
}

} // namespace
