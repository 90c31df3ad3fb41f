#include "hdtv/tcp_channel.h"

#include "service_test.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>

namespace {

using fake::state;

constexpr int listening_socket = 5;
constexpr const char *gateway_file = "/dev/shm/current_gateway";

class tcp_channel : public service_test {
  protected:
    void SetUp() override {
        service_test::SetUp();
        have_address("10.87.33.50");
        have_url(station_page);
    }

    static void serve(const std::vector<fake::connection> &peers) {
        state.connections = peers;
        for (std::size_t i = 0; i < peers.size(); ++i) {
            connect_fn(listening_socket, 0, nullptr);
        }
    }
    static std::string gateway() {
        return bstr_text(current_gateway);
    }
};

TEST_F(tcp_channel, reads_once_then_shuts_down_and_closes_before_anything_else) {
    serve({{"10.87.33.20", wire::stop_turnout()}});
    const std::string fd = "1000";
    const std::vector<std::string> start(state.calls.begin(), state.calls.begin() + 4);
    EXPECT_EQ(start, (std::vector<std::string>{"accept 5 16", "read " + fd + " 4095",
                                               "shutdown " + fd + " " + std::to_string(SHUT_RDWR),
                                               "close " + fd}));
    EXPECT_EQ(state.calls_of("read").size(), 1U);
    EXPECT_EQ(member("alert_type"), "stop_turnout");
    EXPECT_TRUE(state.sent.empty());
}

TEST_F(tcp_channel, first_connection_names_the_gateway_and_later_ones_do_not) {
    serve({{"10.87.33.20", ""}, {"10.87.33.21", ""}});
    EXPECT_EQ(gateway(), "10.87.33.20");
    EXPECT_EQ(output(), "Setting Gateway Address: 10.87.33.20\n");
    EXPECT_EQ(state.files[gateway_file],
              R"({"gateway_addr": "10.87.33.20", "mac_addr": "001122AABBCC"})");
    EXPECT_EQ(state.calls_of(std::string("open ") + gateway_file),
              std::vector<std::string>{std::string("open ") + gateway_file + " " +
                                       std::to_string(O_WRONLY | O_CREAT | O_TRUNC)});
    EXPECT_EQ(state.opened_with_mode[gateway_file], 0777);
}

TEST_F(tcp_channel, unit_behind_the_proxy_learns_no_gateway) {
    use_oru_proxy = true;
    serve({{"10.87.33.20", wire::stop_turnout()}});
    EXPECT_EQ(current_gateway, nullptr);
    EXPECT_FALSE(state.files.contains(gateway_file));
    EXPECT_EQ(member("alert_type"), "stop_turnout");
    use_oru_proxy = false;
    serve({{"10.87.33.20", ""}, {"10.87.33.21", ""}});
    EXPECT_EQ(gateway(), "10.87.33.21");
}

TEST_F(tcp_channel, gateway_file_that_cannot_be_written_is_not_tried_again) {
    state.failing = {std::string("open ") + gateway_file};
    serve({{"10.87.33.20", ""}, {"10.87.33.21", ""}});
    EXPECT_EQ(gateway(), "10.87.33.20");
    EXPECT_EQ(state.calls_of(std::string("open ") + gateway_file).size(), 1U);
}

TEST_F(tcp_channel, gateway_file_without_an_interface_holds_zeros) {
    state.interfaces.clear();
    serve({{"10.87.33.20", ""}});
    EXPECT_EQ(state.files[gateway_file],
              R"({"gateway_addr": "10.87.33.20", "mac_addr": "000000000000"})");
}

TEST_F(tcp_channel, failed_accept_does_nothing) {
    state.failing = {"accept"};
    serve({{"10.87.33.20", wire::stop_turnout()}});
    EXPECT_EQ(state.calls, std::vector<std::string>{"accept 5 16"});
    EXPECT_EQ(current_gateway, nullptr);
}

TEST_F(tcp_channel, failed_read_leaves_the_connection_open_and_does_nothing_else) {
    serve({{"10.87.33.20", wire::stop_turnout(), ECONNRESET}});
    EXPECT_EQ(state.calls,
              (std::vector<std::string>{"accept 5 16", "read 1000 4095", "close-on-exec 1000"}));
    EXPECT_EQ(current_gateway, nullptr);
    EXPECT_EQ(document(), "");
}

TEST_F(tcp_channel, message_of_4095_bytes_is_dispatched_whole_and_a_longer_one_cut) {
    const std::string alert = std::string("\x03\x01\0\0\0\0", 6);
    serve({{"10.87.33.20", alert + std::string(4089, 'x')},
           {"10.87.33.20", alert + std::string(4090, 'y')}});
    EXPECT_EQ(member("alert_area"), std::string(4089, 'y'));
    EXPECT_NE(output().find("\n4089\nWriting JSON: "), std::string::npos);
}

TEST_F(tcp_channel, nothing_of_an_earlier_message_is_left_in_the_buffer) {
    serve({{"10.87.33.20", std::string("\x03\x01\0\0\0\0LONGER TEXT", 17)},
           {"10.87.33.20", std::string("\x03\x01\0\0\0\0OTHER", 11)}});
    EXPECT_EQ(member("alert_area"), "OTHER");
}

} // namespace
