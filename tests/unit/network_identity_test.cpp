#include "hdtv/network_identity.h"

#include "service_test.h"

#include "hdtv/dhcp_client.h"
#include "hdtv/gateway_records.h"

#include <arpa/inet.h>
#include <net/if.h>

namespace {

using fake::state;

class network_identity : public service_test {
  protected:
    static std::string address() {
        in_addr found{};
        found.s_addr = get_ip_address();
        return inet_ntoa(found);
    }
    static std::string hardware_address() {
        unsigned char bytes[8] = {9, 9, 9, 9, 9, 9, 9, 9};
        get_mac_address(bytes + 1);
        EXPECT_EQ(bytes[0], 9);
        EXPECT_EQ(bytes[7], 9);
        return {reinterpret_cast<char *>(bytes) + 1, 6};
    }
};

TEST_F(network_identity, of_eth0_is_returned) {
    have_address("10.87.33.50");
    EXPECT_EQ(address(), "10.87.33.50");
    EXPECT_EQ(hardware_address(), std::string("\x00\x11\x22\xAA\xBB\xCC", 6));
    EXPECT_EQ(state.calls_of("close").size(), 2U);
}

TEST_F(network_identity, without_eth0_is_zero) {
    state.interfaces = {{"lo", "127.0.0.1", ""}, {"eth1", "10.87.33.51", "abcdef"}};
    EXPECT_EQ(address(), "0.0.0.0");
    EXPECT_EQ(hardware_address(), std::string(6, '\0'));
}

TEST_F(network_identity, eth0_without_an_address_has_a_hardware_address) {
    have_address("");
    EXPECT_EQ(address(), "0.0.0.0");
    EXPECT_EQ(hardware_address(), std::string("\x00\x11\x22\xAA\xBB\xCC", 6));
}

TEST_F(network_identity, only_eth0_counts_among_other_interfaces) {
    state.interfaces = {{"lo", "127.0.0.1", ""},
                        {"eth0", "10.87.33.50", ""},
                        {"eth0:1", "10.87.33.60", ""},
                        {"eth01", "10.87.33.61", ""},
                        {"wlan0", "192.168.1.2", ""}};
    EXPECT_EQ(address(), "10.87.33.50");
}

TEST_F(network_identity, last_record_of_eth0_counts) {
    state.interfaces = {
        {"eth0", "10.87.33.50", ""}, {"eth0:1", "10.87.33.60", ""}, {"eth0", "10.87.34.70", ""}};
    EXPECT_EQ(address(), "10.87.34.70");
}

TEST_F(network_identity, of_an_alias_alone_is_zero) {
    state.interfaces = {{"eth0:1", "10.87.33.60", ""}};
    EXPECT_EQ(address(), "0.0.0.0");
}

TEST_F(network_identity, only_the_first_8_records_are_examined) {
    for (int i = 0; i < 7; ++i) {
        state.interfaces.push_back({"dummy" + std::to_string(i), "192.168.0.1", ""});
    }
    state.interfaces.push_back({"eth0", "10.87.33.50", ""});
    EXPECT_EQ(address(), "10.87.33.50");
    state.interfaces.insert(state.interfaces.begin(), {"lo", "127.0.0.1", ""});
    EXPECT_EQ(address(), "0.0.0.0");
    EXPECT_EQ(state.calls_of("SIOCGIFCONF").back(),
              "SIOCGIFCONF " + std::to_string(8 * sizeof(ifreq)));
}

TEST_F(network_identity, without_a_socket_is_zero) {
    have_address("10.87.33.50");
    state.failing = {"socket udp"};
    EXPECT_EQ(address(), "0.0.0.0");
    EXPECT_TRUE(state.calls_of("SIOCGIFCONF").empty());
}

TEST_F(network_identity, socket_of_a_failed_listing_stays_open_but_is_not_inherited) {
    have_address("10.87.33.50");
    state.failing = {"SIOCGIFCONF"};
    EXPECT_EQ(address(), "0.0.0.0");
    EXPECT_TRUE(state.calls_of("close ").empty());
    EXPECT_EQ(state.calls_of("close-on-exec").size(), 1U);
}

TEST_F(network_identity, rollcall_reply_holds_the_hardware_address_and_two_fixed_bytes) {
    have_address("10.87.33.50");
    const rollcall_reply_record reply = make_rollcall_reply();
    EXPECT_EQ(reply,
              (rollcall_reply_record{2, 0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC, 12, wire::version}));
}

TEST_F(network_identity, dhcp_start_kills_the_old_client_first_and_does_not_wait_for_the_new) {
    setup_dhcp_background_process();
    EXPECT_EQ(state.calls, (std::vector<std::string>{"fork", "wait", "fork"}));
    EXPECT_EQ(udhcpc_pid, 101);
}

TEST_F(network_identity, dhcp_start_executes_exactly_killall) {
    state.next_pid = 0;
    EXPECT_CHILD_ENDS(setup_dhcp_background_process());
    EXPECT_EQ(state.executed(), std::vector<std::string>{"/usr/bin/killall: killall -9 udhcpc"});
}

TEST_F(network_identity, failed_fork_of_the_dhcp_client_is_stored) {
    state.failing = {"fork"};
    setup_dhcp_background_process();
    EXPECT_EQ(udhcpc_pid, -1);
}

} // namespace
