#include "cec/cec_port.h"

#include "cec_linux_test.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace {

// Sending.

TEST_F(cec_linux, message_carries_its_header_and_its_result_is_notified) {
    start();
    EXPECT_EQ(send(0, {0x9D, 0x00, 0x12}), 0);
    EXPECT_EQ(transmitted(), calls{"TRANSMIT 40:9D:00:12"});
    const auto told = wait_for_notifications(1);
    EXPECT_EQ(told[0], (notification{1 | 4 << 16, 0x12009D40, 0, 0, 0}));
}

TEST_F(cec_linux, active_source_is_broadcast) {
    start();
    EXPECT_EQ(vc_cec_send_ActiveSource(0x1234, 0), 0);
    EXPECT_EQ(transmitted(), calls{"TRANSMIT 4F:82:12:34"});
}

TEST_F(cec_linux, unanswered_message_is_told_and_notified_with_its_result) {
    start();
    const std::uint8_t status = CEC_TX_STATUS_NACK | CEC_TX_STATUS_MAX_RETRIES;
    fake_cec_device::transmit_with(status);
    EXPECT_EQ(send(0, {0x8F}), 0);
    const auto told = wait_for_notifications(1);
    EXPECT_EQ(told[0][0], 1U | 2U << 16 | std::uint32_t{status} << 24);
    EXPECT_EQ(errors(), "CEC: /dev/cec0: no answer\n");
}

TEST_F(cec_linux, lost_arbitration_is_told) {
    start();
    fake_cec_device::transmit_with(CEC_TX_STATUS_ARB_LOST | CEC_TX_STATUS_MAX_RETRIES);
    EXPECT_EQ(send(0, {0x8F}), 0);
    wait_for_notifications(1);
    EXPECT_EQ(errors(), "CEC: /dev/cec0: not sent\n");
}

TEST_F(cec_linux, television_is_woken_even_without_an_address) {
    start({.physical_address = CEC_PHYS_ADDR_INVALID});
    EXPECT_EQ(send(0, {0x04}), 0);
    EXPECT_EQ(transmitted(), calls{"TRANSMIT F0:04"});
}

TEST_F(cec_linux, link_lost_at_the_moment_of_sending_is_tried_without_an_address) {
    start({.errors = {{CEC_TRANSMIT, ENONET}}});
    EXPECT_NE(send(0, {0x04}), 0);
    EXPECT_EQ(transmitted(), (calls{"TRANSMIT 40:04", "TRANSMIT F0:04"}));
    EXPECT_EQ(errors(), "CEC: /dev/cec0: no link\n");
}

TEST_F(cec_linux, message_without_an_address_and_without_a_link_is_tried_once) {
    start({.errors = {{CEC_TRANSMIT, ENONET}}, .physical_address = CEC_PHYS_ADDR_INVALID});
    EXPECT_NE(send(0, {0x04}), 0);
    EXPECT_EQ(transmitted(), calls{"TRANSMIT F0:04"});
}

TEST_F(cec_linux, full_queue_is_told_and_not_waited_for) {
    start({.errors = {{CEC_TRANSMIT, EBUSY}}});
    EXPECT_NE(send(0, {0x04}), 0);
    EXPECT_EQ(transmitted().size(), 1U);
    EXPECT_EQ(errors(), "CEC: /dev/cec0: Device or resource busy\n");
}

TEST_F(cec_linux, message_longer_than_the_bus_carries_is_refused) {
    start();
    EXPECT_NE(send(0, std::vector<std::uint8_t>(16, 0x04)), 0);
    EXPECT_EQ(send(0, std::vector<std::uint8_t>(15, 0x04)), 0);
    EXPECT_EQ(transmitted().size(), 1U);
}

// Receiving.

TEST_F(cec_linux, forwarded_message_is_notified_in_the_packed_layout) {
    start();
    std::vector<std::uint8_t> message = {0x0F, 0x80};
    for (std::uint8_t byte = 2; byte < 16; ++byte) {
        message.push_back(byte);
    }
    fake_cec_device::receive(message);
    const auto told = wait_for_notifications(1);
    EXPECT_EQ(told[0],
              (notification{2 | 16 << 16, 0x0302800F, 0x07060504, 0x0B0A0908, 0x0F0E0D0C}));
}

TEST_F(cec_linux, message_to_the_unit_that_is_not_forwarded_is_refused_on_the_bus) {
    start();
    fake_cec_device::receive({0x04, 0x44, 0x41}); // a key of the remote control
    fake_cec_device::receive({0x04, 0x90, 0x00}); // forwarded
    // The refusal's outcome and the forwarded message, whichever is first.
    auto told = wait_for_notifications(2);
    std::ranges::sort(told);
    EXPECT_EQ(told[0][1], 0x00009004U);
    EXPECT_EQ(told[1][1], 0x00440040U);
    EXPECT_EQ(transmitted(), calls{"TRANSMIT 40:00:44:00"});
}

TEST_F(cec_linux, question_for_the_units_power_status_is_answered_with_on) {
    start();
    fake_cec_device::receive({0x04, 0x8F});
    fake_cec_device::receive({0xF4, 0x8F}); // of nobody
    fake_cec_device::receive({0x04, 0x90, 0x00});
    wait_for_notifications(2); // the answer's outcome, and the forwarded message
    EXPECT_EQ(transmitted(), calls{"TRANSMIT 40:90:00"});
}

TEST_F(cec_linux, polls_broadcasts_refusals_and_unregistered_senders_are_never_refused) {
    start();
    fake_cec_device::receive({0x04});
    fake_cec_device::receive({0x0F, 0x85});
    fake_cec_device::receive({0x04, 0x00, 0x04, 0x00});
    fake_cec_device::receive({0xF4, 0x44, 0x41});
    fake_cec_device::receive({0x04, 0x90, 0x00});
    wait_for_notifications(1);
    EXPECT_EQ(transmitted(), calls{});
    EXPECT_EQ(notifications_so_far().size(), 1U);
}

TEST_F(cec_linux, poll_is_no_message_of_opcode_0) {
    start();
    vc_cec_register_command(0x00);
    fake_cec_device::receive({0x04});
    fake_cec_device::receive({0x04, 0x90, 0x00});
    wait_for_notifications(1);
    EXPECT_EQ(notifications_so_far()[0][1], 0x00009004U);
}

TEST_F(cec_linux, opcodes_can_be_deregistered) {
    start();
    vc_cec_deregister_all();
    vc_cec_register_command(0x82);
    EXPECT_NE(vc_cec_register_command(256), 0);
    fake_cec_device::receive({0x0F, 0x80, 0x10, 0x00, 0x20, 0x00});
    fake_cec_device::receive({0x0F, 0x82, 0x20, 0x00});
    const auto told = wait_for_notifications(1);
    EXPECT_EQ(told[0][1], 0x0020820FU);
}

TEST_F(cec_linux, signal_ends_no_listening) {
    start();
    fake_cec_device::interrupt();
    fake_cec_device::receive({0x04, 0x90, 0x00});
    EXPECT_EQ(wait_for_notifications(1)[0][1], 0x00009004U);
    EXPECT_EQ(errors(), "");
}

TEST_F(cec_linux, lost_messages_are_told) {
    start();
    fake_cec_device::lose_messages();
    EXPECT_TRUE(wait_until([&] { return errors() == "CEC: /dev/cec0: messages were lost\n"; }));
}

} // namespace
