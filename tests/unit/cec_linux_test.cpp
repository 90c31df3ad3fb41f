#include "cec/cec.h"
#include "cec/cec_port.h"

#include "cec_linux_test.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace {

// Opening.

TEST_F(cec_linux, device_is_opened_without_blocking_and_kept_from_children) {
    start();
    const calls made = fake_cec_device::calls();
    ASSERT_GE(made.size(), 4U);
    EXPECT_EQ(made[0], "open " + std::to_string(O_RDWR | O_NONBLOCK));
    EXPECT_EQ(made[1], "close-on-exec");
    // Initiator beside others, exclusive follower, no pass-through of the television's keys.
    EXPECT_EQ(made[2], "S_MODE 0x21");
    EXPECT_EQ(made[3], "S_LOG_ADDRS 1");
}

TEST_F(cec_linux, missing_device_is_no_adapter) {
    for (const int error : {ENOENT, ENODEV, ENXIO}) {
        EXPECT_EQ(open_device({.open_error = error}), -1);
    }
    EXPECT_EQ(errors(), "CEC: /dev/cec0: no adapter\nCEC: /dev/cec0: no adapter\n"
                        "CEC: /dev/cec0: no adapter\n");
}

TEST_F(cec_linux, device_without_permission_says_so) {
    for (const int error : {EACCES, EPERM}) {
        EXPECT_EQ(open_device({.open_error = error}), -1);
    }
    EXPECT_EQ(errors(), "CEC: /dev/cec0: no permission\nCEC: /dev/cec0: no permission\n");
}

TEST_F(cec_linux, device_that_is_none_is_closed_again) {
    EXPECT_EQ(open_device({.errors = {{CEC_ADAP_G_CAPS, ENOTTY}}}), -1);
    EXPECT_EQ(errors(), "CEC: /dev/cec0: not a CEC device\n");
    EXPECT_EQ(fake_cec_device::calls().back(), "close");
}

TEST_F(cec_linux, adapter_that_cannot_claim_or_transmit_is_closed_again) {
    for (const int capabilities : {CEC_CAP_LOG_ADDRS, CEC_CAP_TRANSMIT, 0}) {
        EXPECT_EQ(open_device({.capabilities = static_cast<std::uint32_t>(capabilities)}), -1);
        EXPECT_EQ(fake_cec_device::calls().back(), "close");
    }
    EXPECT_NE(errors().find("cannot be a playback device"), std::string::npos);
}

TEST_F(cec_linux, adapter_of_another_follower_is_in_use) {
    EXPECT_EQ(open_device({.errors = {{CEC_S_MODE, EBUSY}}}), -1);
    EXPECT_EQ(errors(), "CEC: /dev/cec0: in use by another program\n");
    EXPECT_EQ(fake_cec_device::calls().back(), "close");
}

TEST_F(cec_linux, operations_without_a_device_fail_and_reach_nothing) {
    EXPECT_EQ(open_device({.open_error = ENOENT}), -1);
    std::uint32_t logical_address = 7;
    std::uint16_t physical_address = 7;
    EXPECT_NE(vc_cec_get_logical_address(&logical_address), 0);
    EXPECT_NE(vc_cec_get_physical_address(&physical_address), 0);
    EXPECT_NE(vc_cec_set_vendor_id(1), 0);
    EXPECT_NE(vc_cec_set_osd_name("x"), 0);
    EXPECT_NE(send(0, {0x8F}), 0);
    EXPECT_NE(vc_cec_send_ActiveSource(0x1000, 0), 0);
    EXPECT_EQ(logical_address, 7U);
    EXPECT_EQ(physical_address, 7U);
    EXPECT_EQ(fake_cec_device::calls().size(), 1U);
}

// Claiming.

TEST_F(cec_linux, playback_address_is_claimed_with_name_and_vendor) {
    start();
    announce();
    const std::vector<cec_log_addrs> claims = fake_cec_device::claims();
    ASSERT_EQ(claims.size(), 5U); // at first, then twice given up and claimed
    const cec_log_addrs &last = claims.back();
    EXPECT_EQ(last.num_log_addrs, 1);
    EXPECT_EQ(last.cec_version, CEC_OP_CEC_VERSION_1_4);
    EXPECT_EQ(last.vendor_id, 0x18C086U);
    EXPECT_STREQ(last.osd_name, "ZELT");
    EXPECT_EQ(last.log_addr_type[0], 3);       // CEC_LOG_ADDR_TYPE_PLAYBACK
    EXPECT_EQ(last.primary_device_type[0], 4); // CEC_OP_PRIM_DEVTYPE_PLAYBACK
    EXPECT_EQ(last.all_device_types[0], 0x10); // CEC_OP_ALL_DEVTYPE_PLAYBACK
    EXPECT_EQ(last.flags, static_cast<__u32>(CEC_LOG_ADDRS_FL_ALLOW_UNREG_FALLBACK));
    EXPECT_EQ(fake_cec_device::calls("S_LOG_ADDRS"),
              (calls{"S_LOG_ADDRS 1", "S_LOG_ADDRS 0", "S_LOG_ADDRS 1", "S_LOG_ADDRS 0",
                     "S_LOG_ADDRS 1"}));
    EXPECT_EQ(errors(), "");
}

TEST_F(cec_linux, addresses_are_those_of_the_adapter) {
    start({.physical_address = 0x2100, .logical_address = 11});
    std::uint32_t logical_address = 0;
    std::uint16_t physical_address = 0;
    EXPECT_EQ(vc_cec_get_logical_address(&logical_address), 0);
    EXPECT_EQ(vc_cec_get_physical_address(&physical_address), 0);
    EXPECT_EQ(logical_address, 11U);
    EXPECT_EQ(physical_address, 0x2100);
}

TEST_F(cec_linux, logical_address_is_waited_for_while_it_is_being_claimed) {
    start({.is_claiming_late = true});
    std::thread kernel([] { fake_cec_device::finish_claim(); });
    std::uint32_t logical_address = 0;
    EXPECT_EQ(vc_cec_get_logical_address(&logical_address), 0);
    kernel.join();
    EXPECT_EQ(logical_address, 4U);
}

TEST_F(cec_linux, claim_is_waited_for_whatever_else_is_reported) {
    start({.is_claiming_late = true});
    std::thread kernel([] {
        EXPECT_TRUE(wait_until([] { return waits >= 1; }));
        fake_cec_device::change_state();
        EXPECT_TRUE(wait_until([] { return waits >= 2; }));
        fake_cec_device::finish_claim();
    });
    std::uint32_t logical_address = 0;
    EXPECT_EQ(vc_cec_get_logical_address(&logical_address), 0);
    kernel.join();
    EXPECT_EQ(logical_address, 4U);
}

TEST_F(cec_linux, answer_does_not_wait_for_the_claim_that_its_own_thread_hears_of) {
    start({.is_claiming_late = true});
    fake_cec_device::receive({0x04, 0x44, 0x41});
    EXPECT_TRUE(wait_until([] { return transmitted().size() == 1; }));
    EXPECT_EQ(waits, 0U);
}

TEST_F(cec_linux, message_is_sent_when_the_address_has_been_claimed) {
    start({.is_claiming_late = true});
    std::thread kernel([] { fake_cec_device::finish_claim(); });
    const std::uint8_t payload[] = {0x8F};
    EXPECT_EQ(vc_cec_send_message(0, payload, 1, 0), 0);
    kernel.join();
    EXPECT_EQ(fake_cec_device::calls("TRANSMIT"), std::vector<std::string>{"TRANSMIT 40:8F"});
}

TEST_F(cec_linux, without_a_link_there_is_no_address_and_no_waiting) {
    start({.physical_address = CEC_PHYS_ADDR_INVALID});
    std::uint32_t logical_address = 0;
    std::uint16_t physical_address = 0;
    EXPECT_EQ(vc_cec_get_logical_address(&logical_address), 0);
    EXPECT_EQ(vc_cec_get_physical_address(&physical_address), 0);
    EXPECT_EQ(logical_address, 15U);
    EXPECT_EQ(physical_address, 0xFFFF);
    EXPECT_EQ(waits, 0U);
    EXPECT_TRUE(wait_until([&] { return errors() == "CEC: /dev/cec0: no link\n"; }));
}

TEST_F(cec_linux, refused_claim_is_told) {
    start({.errors = {{CEC_ADAP_S_LOG_ADDRS, EBUSY}}});
    EXPECT_NE(vc_cec_set_osd_name("ZELT"), 0);
    EXPECT_NE(errors().find("Device or resource busy"), std::string::npos);
    EXPECT_EQ(waits, 0U); // nothing is being claimed
}

TEST_F(cec_linux, replugged_cable_is_claimed_by_the_kernel_and_the_new_address_is_sent) {
    start();
    announce();
    std::uint16_t own = 0;
    vc_cec_get_physical_address(&own);
    const std::size_t claims = fake_cec_device::claims().size();
    fake_cec_device::plug(CEC_PHYS_ADDR_INVALID);
    EXPECT_TRUE(wait_until([&] { return errors() == "CEC: /dev/cec0: no link\n"; }));
    fake_cec_device::plug(0x3000);
    EXPECT_EQ(vc_cec_send_ActiveSource(own, 0), 0);
    EXPECT_EQ(vc_cec_send_ActiveSource(0x2000, 0), 0); // another source's address is sent as is
    EXPECT_EQ(transmitted(), (calls{"TRANSMIT 4F:82:30:00", "TRANSMIT 4F:82:20:00"}));
    EXPECT_EQ(fake_cec_device::claims().size(), claims);
}

// The device goes away.

TEST_F(cec_linux, removed_device_is_closed_and_later_calls_fail) {
    start();
    unplug_device();
    EXPECT_EQ(errors(), "CEC: /dev/cec0: the adapter is gone\n");
    EXPECT_TRUE(wait_until([] { return send(0, {0x8F}) != 0; }));
    EXPECT_EQ(transmitted(), calls{});
    std::uint32_t logical_address = 0;
    EXPECT_NE(vc_cec_get_logical_address(&logical_address), 0);
}

TEST_F(cec_linux, without_a_thread_there_is_no_television) {
    ASSERT_EQ(open_device({}), 0);
    cec_connection *connection = nullptr;
    thread_error = EAGAIN;
    vc_vchi_cec_init(nullptr, &connection, 1);
    thread_error = 0;
    EXPECT_EQ(errors(), "CEC: /dev/cec0: Resource temporarily unavailable\n");
    EXPECT_EQ(fake_cec_device::calls().back(), "close");
    EXPECT_NE(send(0, {0x8F}), 0);
}

TEST_F(cec_linux, name_that_is_too_long_is_cut) {
    start();
    EXPECT_EQ(vc_cec_set_osd_name("01234567890123456789"), 0);
    EXPECT_STREQ(fake_cec_device::claims().back().osd_name, "01234567890123");
}

// The logic on top of it.

TEST_F(cec_linux, removed_device_ends_the_waking_of_a_television_in_standby) {
    captured_output output;
    fake_cec_device::reset({});
    is_started_ = true;
    ASSERT_EQ(cec_init(), 0);
    fake_cec_device::receive({0x04, 0x90, 0x01});
    EXPECT_TRUE(wait_until(
        [&] { return output.text().find("TV is in standby mode.\n") != std::string::npos; }));
    std::thread technician([this] {
        EXPECT_TRUE(wait_until([] { return transmitted().size() >= 5; }));
        unplug_device();
    });
    cec_alert_active();
    technician.join();
    // There may also be a complaint about a message sent at that very moment.
    EXPECT_NE(errors().find("CEC: /dev/cec0: the adapter is gone\n"), std::string::npos);
    // Nothing is printed as received that was not.
    EXPECT_EQ(output.text().find("NOT in standby"), std::string::npos);
}

TEST_F(cec_linux, logic_starts_up_on_it_and_learns_the_televisions_status) {
    fake_cec_device::reset({.physical_address = 0x2000, .logical_address = 8});
    captured_output output;
    is_started_ = true;
    ASSERT_EQ(cec_init(), 0);
    EXPECT_EQ(transmitted(), (calls{"TRANSMIT 80:8F", "TRANSMIT 8F:82:20:00"}));
    EXPECT_TRUE(output.text().starts_with("logical_address: 0x8\nphysical_address: 0x2000\n"));
    fake_cec_device::receive({0x08, 0x90, 0x01});
    EXPECT_TRUE(wait_until(
        [&] { return output.text().find("TV is in standby mode.\n") != std::string::npos; }));
    std::thread television([] {
        EXPECT_TRUE(wait_until([] { return transmitted().size() >= 5; }));
        fake_cec_device::receive({0x08, 0x90, 0x00});
    });
    cec_alert_active();
    television.join();
    EXPECT_EQ(transmitted()[2], "TRANSMIT 80:04");
    EXPECT_EQ(transmitted()[3], "TRANSMIT 80:8F");
    unplug_device(); // before the output that its thread prints to
}

} // namespace
