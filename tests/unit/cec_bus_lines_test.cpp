// The lines between the bus and the provider, without the logic.

#include "cec/cec_port.h"

#include "cec_bus_test.h"

#include <cstdint>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

const std::string lost = "CEC bus: the connection was lost\n";

std::string skipped(const std::string &line) {
    return "CEC bus: skipped the line \"" + line + "\"\n";
}

std::int32_t send_payload(std::uint32_t destination, const std::vector<std::uint8_t> &payload) {
    return vc_cec_send_message(destination, payload.data(),
                               static_cast<std::uint32_t>(payload.size()), 0);
}

// Joining.

TEST_F(cec_bus, greeting_gives_the_unit_its_addresses) {
    ASSERT_TRUE(connect("hello B 2F10"));
    std::uint32_t logical_address = 0;
    std::uint16_t physical_address = 0;
    EXPECT_EQ(vc_cec_get_logical_address(&logical_address), 0);
    EXPECT_EQ(vc_cec_get_physical_address(&physical_address), 0);
    EXPECT_EQ(logical_address, 11U);
    EXPECT_EQ(physical_address, 0x2F10);
    EXPECT_EQ(fcntl(provider_end(), F_GETFD), FD_CLOEXEC);
}

TEST_F(cec_bus, without_a_listener_there_is_no_bus) {
    refuse();
    EXPECT_FALSE(connect());
    EXPECT_TRUE(is_left());
}

TEST_F(cec_bus, bus_that_says_nothing_and_closes_is_none) {
    shutdown(provider_end(), SHUT_RD);
    cec_instance instance = nullptr;
    ASSERT_EQ(vchi_initialise(&instance), 0);
    EXPECT_NE(vchi_connect(nullptr, 0, instance), 0);
}

class cec_bus_greeting : public cec_bus, public testing::WithParamInterface<const char *> {};

TEST_P(cec_bus_greeting, that_is_none_is_refused) {
    EXPECT_FALSE(connect(GetParam()));
    EXPECT_TRUE(is_left());
    std::uint32_t logical_address = 7;
    EXPECT_NE(vc_cec_get_logical_address(&logical_address), 0);
    EXPECT_EQ(logical_address, 7U);
}

INSTANTIATE_TEST_SUITE_P(any, cec_bus_greeting,
                         testing::Values("", "hello", "hello 4 100", "hello 4 10000",
                                         "hello 44 100", "hello G 1000", "hello 4 10g0",
                                         "hello 4:1000", "HELLO 4 1000", "hallo 4 1000",
                                         "hello  4 100"));

// Lines from the bus.

TEST_F(cec_bus, received_message_is_notified_in_the_packed_layout) {
    ASSERT_TRUE(connect());
    listen();
    say("rx 0F:80:02:03:04:05:06:07:08:09:0A:0B:0C:0D:0E:FF");
    say("rx 04");
    EXPECT_EQ(told(), (std::vector<notification>{
                          {2 | 16 << 16, 0x0302800F, 0x07060504, 0x0B0A0908, 0xFF0E0D0C},
                          {2 | 1 << 16, 0x00000004, 0, 0, 0}}));
    EXPECT_EQ(errors(), lost);
}

TEST_F(cec_bus, sent_message_is_notified_as_transmitted) {
    ASSERT_TRUE(connect());
    listen();
    say("tx 40:8F");
    EXPECT_EQ(told(), (std::vector<notification>{{1 | 2 << 16, 0x00008F40, 0, 0, 0}}));
}

TEST_F(cec_bus, other_notifications_are_passed_on_as_they_are) {
    ASSERT_TRUE(connect());
    listen();
    say("raw 01020304 89ABCDEF 00000000 FFFFFFFF 90A0F001");
    EXPECT_EQ(told(),
              (std::vector<notification>{{0x01020304, 0x89ABCDEF, 0, 0xFFFFFFFF, 0x90A0F001}}));
}

TEST_F(cec_bus, line_may_come_in_pieces_and_many_at_once) {
    ASSERT_TRUE(connect());
    send_bytes("rx 04:9");
    listen();
    std::string lines = "0:01\n";
    for (int i = 0; i < 1000; ++i) {
        lines += "rx 04:90:00\n";
    }
    send_bytes(lines);
    const std::vector<notification> all = told();
    ASSERT_EQ(all.size(), 1001U);
    EXPECT_EQ(all.front()[1], 0x00019004U);
    EXPECT_EQ(all.back()[1], 0x00009004U);
    EXPECT_EQ(errors(), lost);
}

TEST_F(cec_bus, greeting_and_first_message_may_come_at_once) {
    ASSERT_TRUE(connect("hello 4 1000\nrx 04:90:01"));
    listen();
    EXPECT_EQ(told().size(), 1U);
}

TEST_F(cec_bus, unfinished_line_at_the_end_is_no_line) {
    ASSERT_TRUE(connect());
    listen();
    send_bytes("rx 04:90:01");
    EXPECT_EQ(told().size(), 0U);
    EXPECT_EQ(errors(), lost);
}

TEST_F(cec_bus, long_line_is_skipped_to_its_end) {
    ASSERT_TRUE(connect());
    listen();
    say("rx 04:90:01" + std::string(9000, ' ') + "rx 04:90:01");
    say("rx 04:90:00");
    EXPECT_EQ(told(), (std::vector<notification>{{2 | 3 << 16, 0x00009004, 0, 0, 0}}));
    EXPECT_EQ(errors(), skipped("rx 04:90:01" + std::string(53, ' ')) + lost);
}

class cec_bus_line : public cec_bus, public testing::WithParamInterface<const char *> {};

TEST_P(cec_bus_line, that_is_none_is_skipped_and_the_next_one_is_read) {
    ASSERT_TRUE(connect());
    listen();
    say(GetParam());
    say("tx 40:8F");
    EXPECT_EQ(told().size(), 1U);
    EXPECT_EQ(errors(), skipped(std::string(GetParam()).substr(0, 64)) + lost);
}

INSTANTIATE_TEST_SUITE_P(any, cec_bus_line,
                         testing::Values("", "rx", "rx ", "tx ", "raw ", "hello 4 1000", "RX 40",
                                         "rx40", "rx  40", "rx 4", "rx 4f", "rx 4G", "rx 4@",
                                         "rx 4/", "rx 4:", "rx 40 8F", "rx 40:8F:", "rx :40:8F",
                                         "rx 40:8", "rx 40:8F0", "tx 40:x0",
                                         "rx 00:01:02:03:04:05:06:07:08:09:0A:0B:0C:0D:0E:0F:10",
                                         "raw 00000001", "raw 00000001 00000000 00000000 00000000",
                                         "raw 00000001 00000000 00000000 00000000 0000000",
                                         "raw 00000001 00000000 00000000 00000000 000000000",
                                         "raw 00000001 00000000 00000000 00000000 0000000a",
                                         "raw 00000001:00000000 00000000 00000000 00000000",
                                         "raw 00000001 00000000 00000000 00000000:00000000"));

// Lines to the bus.

TEST_F(cec_bus, each_operation_is_a_line) {
    ASSERT_TRUE(connect());
    EXPECT_EQ(vc_cec_deregister_all(), 0);
    EXPECT_EQ(vc_cec_register_command(0x09), 0);
    EXPECT_EQ(vc_cec_set_vendor_id(0x18C086), 0);
    EXPECT_EQ(vc_cec_set_osd_name("A B"), 0);
    EXPECT_EQ(said(), "deregister\nregister 09\nvendor 18C086\nosd A B\n");
}

TEST_F(cec_bus, message_carries_its_header) {
    ASSERT_TRUE(connect("hello B 1000"));
    EXPECT_EQ(send_payload(0, {0x9D, 0x00, 0x12}), 0);
    EXPECT_EQ(send_payload(0xF5, {0x8F}), 0);
    EXPECT_EQ(send_payload(0, {}), 0);
    EXPECT_EQ(vc_cec_send_ActiveSource(0x1234, 0), 0);
    EXPECT_EQ(said(), "send B0:9D:00:12\nsend B5:8F\nsend B0\nsend BF:82:12:34\n");
}

TEST_F(cec_bus, message_longer_than_the_bus_carries_is_refused) {
    ASSERT_TRUE(connect());
    EXPECT_NE(send_payload(0, std::vector<std::uint8_t>(16, 0x04)), 0);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(send_payload(0, std::vector<std::uint8_t>(15, 0x04)), 0);
    EXPECT_EQ(said().size(), 5U + 2 + 15 * 3 + 1);
}

TEST_F(cec_bus, longest_line_is_sent_whole) {
    ASSERT_TRUE(connect());
    EXPECT_EQ(vc_cec_set_osd_name(std::string(250, 'n').c_str()), 0);
    EXPECT_EQ(said(), "osd " + std::string(250, 'n') + "\n");
    EXPECT_NE(vc_cec_set_osd_name(std::string(251, 'n').c_str()), 0);
    EXPECT_EQ(said(), "");
}

TEST_F(cec_bus, bus_that_does_not_read_is_not_waited_for) {
    ASSERT_TRUE(connect());
    int sent = 0;
    while (vc_cec_register_command(0x82) == 0 && sent < 1000000) {
        ++sent;
    }
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, 1000000);
}

TEST_F(cec_bus, bus_that_is_gone_ends_no_process) {
    ASSERT_TRUE(connect());
    end_bus();
    EXPECT_NE(vc_cec_deregister_all(), 0);
}

TEST_F(cec_bus, after_the_loss_of_the_bus_nothing_is_sent) {
    ASSERT_TRUE(connect());
    listen();
    end_bus();
    std::uint16_t physical_address = 7;
    EXPECT_NE(vc_cec_get_physical_address(&physical_address), 0);
    EXPECT_EQ(physical_address, 7);
    EXPECT_NE(vc_cec_set_vendor_id(1), 0);
    EXPECT_NE(send_payload(0, {0x8F}), 0);
    EXPECT_EQ(errors(), lost);
}

} // namespace
