#include "cec/cec.h"
#include "cec/cec_port.h"

#include "captured_output.h"
#include "fake_cec_device.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <thread>
#include <vector>

namespace {
int thread_error; // the provider's thread is refused with it
}

extern "C" {
unsigned __wrap_sleep(unsigned /*seconds*/) {
    std::this_thread::yield();
    return 0;
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                          void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                          void *argument) {
    return thread_error != 0 ? thread_error
                             : __real_pthread_create(thread, attributes, run, argument);
}
}

namespace {

using calls = std::vector<std::string>;
using notification = std::array<std::uint32_t, 5>;

// The notifications so far. The provider's thread adds them.
std::mutex mutex;
std::condition_variable changed;
std::vector<notification> notifications;

void listen(void * /*data*/, std::uint32_t param0, std::uint32_t param1, std::uint32_t param2,
            std::uint32_t param3, std::uint32_t param4) {
    const std::lock_guard lock(mutex);
    notifications.push_back({param0, param1, param2, param3, param4});
    changed.notify_all();
}

std::vector<notification> wait_for_notifications(std::size_t count) {
    std::unique_lock lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(20),
                                 [&] { return notifications.size() >= count; }));
    return notifications;
}

bool wait_until(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}

class cec_linux : public testing::Test {
  protected:
    void SetUp() override {
        errors_.emplace(stderr);
        notifications.clear();
    }

    // Ends the thread that this test has started.
    void TearDown() override {
        unplug_device();
        errors_.reset();
    }

    void unplug_device() {
        if (is_started_) {
            fake_cec_device::remove();
            fake_cec_device::wait_until_closed();
            is_started_ = false;
        }
    }

    std::string errors() {
        return errors_->text();
    }

    static std::int32_t open_device(const fake_cec_device::settings &settings = {}) {
        fake_cec_device::reset(settings);
        cec_instance instance = nullptr;
        if (vchi_initialise(&instance) != 0) {
            return -1;
        }
        return vchi_connect(nullptr, 0, instance);
    }

    // As the logic does it, up to where it announces the unit.
    void start(const fake_cec_device::settings &settings = {}) {
        ASSERT_EQ(open_device(settings), 0);
        cec_connection *connection = nullptr;
        is_started_ = true;
        vc_vchi_cec_init(nullptr, &connection, 1);
        vc_cec_register_callback(listen, nullptr);
        vc_cec_deregister_all();
        for (const std::uint32_t opcode : {0x82U, 0x90U, 0x80U}) {
            EXPECT_EQ(vc_cec_register_command(opcode), 0);
        }
    }

    void announce() {
        vc_cec_set_vendor_id(0x18C086);
        vc_cec_set_osd_name("ZELT");
        std::uint32_t logical_address = 0;
        vc_cec_get_logical_address(&logical_address); // the claim has ended
    }

    static std::int32_t send(std::uint32_t destination, std::vector<std::uint8_t> payload) {
        return vc_cec_send_message(destination, payload.data(),
                                   static_cast<std::uint32_t>(payload.size()), 0);
    }

    static calls transmitted() {
        return fake_cec_device::calls("TRANSMIT");
    }

    bool is_started_ = false;

  private:
    std::optional<captured_output> errors_;
};

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
    EXPECT_EQ(open_device({.open_error = EACCES}), -1);
    EXPECT_EQ(errors(), "CEC: /dev/cec0: no permission\n");
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
    EXPECT_TRUE(wait_until([&] { return errors() == "CEC: /dev/cec0: no link\n"; }));
}

TEST_F(cec_linux, refused_claim_is_told) {
    start({.errors = {{CEC_ADAP_S_LOG_ADDRS, EBUSY}}});
    EXPECT_NE(vc_cec_set_osd_name("ZELT"), 0);
    EXPECT_NE(errors().find("Device or resource busy"), std::string::npos);
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
    EXPECT_EQ(vc_cec_send_ActiveSource(0x2000, 0), 0); // another source's is sent as it is
    EXPECT_EQ(transmitted(), (calls{"TRANSMIT 4F:82:30:00", "TRANSMIT 4F:82:20:00"}));
    EXPECT_EQ(fake_cec_device::claims().size(), claims);
}

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
    EXPECT_EQ(notifications.size(), 1U);
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

TEST_F(cec_linux, lost_messages_are_told) {
    start();
    fake_cec_device::lose_messages();
    EXPECT_TRUE(wait_until([&] { return errors() == "CEC: /dev/cec0: messages were lost\n"; }));
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
    // A message that was sent at that very moment may be complained about, too.
    EXPECT_NE(errors().find("CEC: /dev/cec0: the adapter is gone\n"), std::string::npos);
    // What was never received is never printed as if it had been.
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
