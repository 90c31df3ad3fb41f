#include "cec/cec.h"

#include "captured_output.h"
#include "recording_port.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

using recording_port::receive;

namespace {
std::function<void()> on_sleep; // what happens outside during a pause
}

extern "C" unsigned __wrap_sleep(unsigned seconds) {
    recording_port::record("sleep " + std::to_string(seconds));
    if (on_sleep) {
        on_sleep();
    }
    return 0;
}

namespace {

using calls = std::vector<std::string>;

class cec : public testing::Test {
  protected:
    void SetUp() override {
        output_.emplace();
        recording_port::reset();
    }
    void TearDown() override {
        on_sleep = nullptr;
        output_.reset();
    }

    // A unit that has started up, with all startup output and messages done.
    void have_started(const recording_port::settings &settings = {}) {
        recording_port::reset(settings);
        EXPECT_EQ(cec_init(), 0);
        cec_alert_active(); // forgets a standby before an earlier alert
        recording_port::forget_calls();
        forget_output();
    }
    // A television with this power status, known to the unit.
    void have_tv(std::uint8_t status) {
        receive({0x04, 0x90, status});
        forget_output();
    }
    // Another device has become the active source. A routing change carries both bytes.
    void have_source(std::uint16_t address) {
        receive({0x0F, 0x80, 0x10, 0x00, static_cast<std::uint8_t>(address >> 8),
                 static_cast<std::uint8_t>(address)});
        forget_output();
    }

    std::string output() {
        return output_->text().substr(seen_);
    }
    void forget_output() {
        seen_ = output_->text().size();
    }

    static calls after(void (*operation)()) {
        recording_port::forget_calls();
        operation();
        return recording_port::calls();
    }

  private:
    std::optional<captured_output> output_;
    std::size_t seen_ = 0;
};

// Must run first, while the module still has its initial state.
TEST_F(cec, that_cannot_be_opened_keeps_its_zeros_and_later_calls_still_go_to_the_port) {
    recording_port::reset({.initialise_result = -1});
    EXPECT_EQ(cec_init(), -1);
    EXPECT_EQ(output(), "failed to open vchiq instance\n");
    EXPECT_EQ(recording_port::calls(), calls{"vchi_initialise"});

    recording_port::reset({.connect_result = 1});
    forget_output();
    EXPECT_EQ(cec_init(), -1);
    EXPECT_EQ(output(), "VCHI connection failed\n");
    EXPECT_EQ(recording_port::calls(), (calls{"vchi_initialise", "vchi_connect"}));

    forget_output();
    EXPECT_EQ(after(cec_alert_active), calls{});
    EXPECT_EQ(after(cec_alert_inactive), calls{});
    EXPECT_EQ(after(cec_poll_power_status), calls{"send 0: 8F"});
    EXPECT_EQ(output(), "standby_after_alert 0\nstandby_after_alert 0\n");
}

TEST_F(cec, announces_the_unit_and_takes_the_input_in_order) {
    EXPECT_EQ(cec_init(), 0);
    EXPECT_EQ(recording_port::calls(),
              (calls{"vchi_initialise", "vchi_connect", "vc_vchi_cec_init", "register callback",
                     "deregister", "register 82", "register 90", "register 80",
                     "get logical address", "vendor 18C086", "osd ZELT", "get physical address",
                     "send 0: 8F", "active source 1000"}));
    EXPECT_EQ(output(), "logical_address: 0x4\nphysical_address: 0x1000\n");
}

TEST_F(cec, prints_addresses_in_hex) {
    recording_port::reset({.logical_address = 11, .physical_address = 0x2ab0});
    cec_init();
    EXPECT_EQ(output(), "logical_address: 0xb\nphysical_address: 0x2ab0\n");
    EXPECT_EQ(recording_port::calls().back(), "active source 2AB0");
}

TEST_F(cec, forgets_a_standby_when_it_is_opened_again) {
    have_started();
    have_tv(1);
    have_started();
    after(cec_alert_active);
    EXPECT_EQ(output(), "standby_after_alert 0\n");
}

// What it hears.

TEST_F(cec, power_status_standby_is_printed_without_not) {
    have_started();
    receive({0x04, 0x90, 0x01});
    EXPECT_EQ(output(), "RX: 0 -> 4: 90 01\nTV is in standby mode.\n");
}

TEST_F(cec, every_other_power_status_is_not_standby) {
    have_started();
    for (const std::uint8_t status : std::initializer_list<std::uint8_t>{0x00, 0x02, 0x03, 0xFF}) {
        have_tv(1);
        receive({0x04, 0x90, status});
        EXPECT_NE(output().find("TV is NOT in standby mode.\n"), std::string::npos);
        EXPECT_EQ(after(cec_alert_active), calls{});
        forget_output();
    }
}

TEST_F(cec, power_status_counts_from_any_device) {
    have_started();
    on_sleep = [] { receive({0x54, 0x90, 0x00}); };
    receive({0xB4, 0x90, 0x01});
    EXPECT_EQ(output(), "RX: B -> 4: 90 01\nTV is in standby mode.\n");
    EXPECT_EQ(after(cec_alert_active), (calls{"send 0: 04", "sleep 1", "send 0: 8F", "sleep 1"}));
}

TEST_F(cec, active_source_stores_its_first_operand_byte_alone) {
    have_started();
    receive({0x8F, 0x82, 0x20, 0x00});
    EXPECT_EQ(output(), "RX: 8 -> F: 82 20 00\nactive source now: 0020\n");
    EXPECT_EQ(after(cec_alert_inactive), calls{"active source 0020"});
}

TEST_F(cec, active_source_of_the_own_address_counts_as_another_one) {
    have_started();
    receive({0x4F, 0x82, 0x10, 0x00});
    EXPECT_EQ(after(cec_alert_active), calls{"active source 1000"});
}

TEST_F(cec, routing_change_stores_both_bytes_of_the_new_address) {
    have_started();
    receive({0x0F, 0x80, 0x10, 0x00, 0x20, 0x00});
    EXPECT_EQ(output(), "RX: 0 -> F: 80 10 00 20 00\nactive source now: 2000\n");
    EXPECT_EQ(after(cec_alert_inactive), calls{"active source 2000"});
}

TEST_F(cec, request_active_source_is_answered_if_it_is_delivered) {
    have_started();
    receive({0x0F, 0x85});
    EXPECT_EQ(recording_port::calls(), calls{"active source 1000"});
    EXPECT_EQ(output(), "RX: 0 -> F: 85\n");
}

TEST_F(cec, other_opcodes_are_only_traced) {
    have_started();
    for (unsigned opcode = 0; opcode < 256; ++opcode) {
        if (opcode != 0x80 && opcode != 0x82 && opcode != 0x85 && opcode != 0x90) {
            receive({0x04, static_cast<std::uint8_t>(opcode), 0x01, 0x01, 0x01, 0x01});
        }
    }
    EXPECT_EQ(recording_port::calls(), calls{});
    EXPECT_EQ(output().find("TV is"), std::string::npos);
    EXPECT_EQ(output().find("active source"), std::string::npos);
    EXPECT_EQ(after(cec_alert_active), calls{});
    EXPECT_EQ(after(cec_alert_inactive), calls{});
}

TEST_F(cec, transmitted_message_is_traced_as_such_and_changes_nothing) {
    have_started();
    recording_port::transmitted({0x40, 0x90, 0x01});
    recording_port::transmitted({0x4F, 0x82, 0x20, 0x00});
    recording_port::transmitted({0x4F, 0x80, 0x10, 0x00, 0x20, 0x00});
    recording_port::transmitted({0x4F, 0x85});
    EXPECT_EQ(output(), "TX: 4 -> 0: 90 01\nTX: 4 -> F: 82 20 00\n"
                        "TX: 4 -> F: 80 10 00 20 00\nTX: 4 -> F: 85\n");
    EXPECT_EQ(after(cec_alert_active), calls{});
}

TEST_F(cec, other_notification_of_length_0_prints_only_the_header) {
    have_started();
    recording_port::raw(0x00008004, {});
    EXPECT_EQ(output(), "TX: 0 -> 0:\n");
    forget_output();
    recording_port::raw(0x00000004, {0x4F, 0x82, 0x20});
    EXPECT_EQ(output(), "TX: 4 -> F:\n");
}

TEST_F(cec, received_notification_of_length_0_or_1_is_still_acted_upon_by_its_bytes) {
    have_started();
    recording_port::raw(0x00000002, {0x04, 0x90, 0x01});
    EXPECT_EQ(output(), "RX: 0 -> 4:\nTV is in standby mode.\n");
}

TEST_F(cec, length_above_16_prints_the_16_bytes_that_are_there) {
    have_started();
    const std::string expected = "RX: 0 -> 4: 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F\n";
    for (const std::uint32_t length : {16U, 17U, 255U}) {
        recording_port::raw(2 | length << 16 | 0xAB000000,
                            {0x04, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
        EXPECT_EQ(output(), expected);
        forget_output();
    }
}

TEST_F(cec, reason_has_16_bits_and_only_2_is_received) {
    have_started();
    recording_port::raw(0x0102 | 3 << 16, {0x04, 0x90, 0x01});
    EXPECT_EQ(output(), "TX: 0 -> 4: 90 01\n");
}

TEST_F(cec, result_code_is_no_part_of_the_length) {
    have_started();
    recording_port::raw(1 | 3 << 16 | 0x12000000, {0x40, 0x90, 0x01});
    EXPECT_EQ(output(), "TX: 4 -> 0: 90 01\n");
}

// What it does around an alert.

TEST_F(cec, alert_switches_a_television_that_shows_another_source_and_hands_it_back) {
    have_started();
    have_tv(0);
    have_source(0x2000);
    EXPECT_EQ(after(cec_alert_active), calls{"active source 1000"});
    EXPECT_EQ(output(), "standby_after_alert 0\nSwitching TV to 1000\n");
    forget_output();
    EXPECT_EQ(after(cec_alert_inactive), calls{"active source 2000"});
    EXPECT_EQ(output(), "standby_after_alert 0\n");
}

TEST_F(cec, alert_wakes_a_television_in_standby_until_it_reports_another_status) {
    have_started();
    have_tv(1);
    int pauses = 0;
    on_sleep = [&] {
        if (++pauses == 6) {
            receive({0x04, 0x90, 0x00});
        }
    };
    calls expected;
    for (int i = 0; i < 3; ++i) {
        expected.insert(expected.end(), {"send 0: 04", "sleep 1", "send 0: 8F", "sleep 1"});
    }
    EXPECT_EQ(after(cec_alert_active), expected);
    EXPECT_TRUE(output().starts_with("standby_after_alert 1\n"
                                     "TV on standby, sending ImageViewOn\n"
                                     "TV on standby, sending ImageViewOn\n"
                                     "TV on standby, sending ImageViewOn\n"));
}

TEST_F(cec, waking_goes_on_for_as_long_as_the_television_says_standby) {
    have_started();
    have_tv(1);
    int pauses = 0;
    on_sleep = [&] { receive({0x04, 0x90, ++pauses < 2000 ? std::uint8_t{1} : std::uint8_t{2}}); };
    after(cec_alert_active);
    EXPECT_EQ(pauses, 2000);
}

TEST_F(cec, pauses_are_kept_even_when_the_television_has_answered_already) {
    have_started();
    have_tv(1);
    on_sleep = [] { receive({0x04, 0x90, 0x00}); };
    EXPECT_EQ(after(cec_alert_active), (calls{"send 0: 04", "sleep 1", "send 0: 8F", "sleep 1"}));
}

TEST_F(cec, television_that_was_in_standby_is_put_back_at_every_end) {
    have_started();
    have_tv(1);
    on_sleep = [] { receive({0x04, 0x90, 0x00}); };
    cec_alert_active();
    forget_output();
    EXPECT_EQ(after(cec_alert_inactive), calls{"send 0: 36"});
    EXPECT_EQ(output(), "standby_after_alert 1\n");
    EXPECT_EQ(after(cec_alert_inactive), calls{"send 0: 36"});
    cec_alert_active(); // the next start finds it on
    EXPECT_EQ(after(cec_alert_inactive), calls{});
}

TEST_F(cec, television_that_showed_its_own_tuner_gets_inactive_source_with_the_odd_operands) {
    have_started({.physical_address = 0x1234});
    have_source(0x0000);
    EXPECT_EQ(after(cec_alert_active), calls{"active source 1234"});
    EXPECT_EQ(after(cec_alert_inactive), calls{"send 0: 9D 00 34"});
    have_started();
    have_source(0x0000);
    EXPECT_EQ(after(cec_alert_inactive), calls{"send 0: 9D 00 00"});
}

TEST_F(cec, unit_that_is_the_source_already_sends_no_source_message) {
    have_started();
    EXPECT_EQ(after(cec_alert_active), calls{});
    EXPECT_EQ(after(cec_alert_inactive), calls{});
    EXPECT_EQ(output(), "standby_after_alert 0\nstandby_after_alert 0\n");
}

TEST_F(cec, alert_start_does_not_forget_the_source_to_return_to) {
    have_started();
    have_source(0x3000);
    cec_alert_active();
    cec_alert_active();
    EXPECT_EQ(after(cec_alert_inactive), calls{"active source 3000"});
    EXPECT_EQ(after(cec_alert_inactive), calls{"active source 3000"});
}

TEST_F(cec, poll_asks_for_the_power_status) {
    have_started();
    EXPECT_EQ(after(cec_poll_power_status), calls{"send 0: 8F"});
    EXPECT_EQ(output(), "");
}

// Threads.

TEST_F(cec, callback_on_another_thread_ends_the_waking_and_lines_never_mix) {
    have_started();
    have_tv(1);
    std::atomic<bool> is_waking = false;
    on_sleep = [&is_waking] {
        is_waking = true;
        is_waking.notify_one();
        std::this_thread::yield();
    };
    std::thread television([&is_waking] {
        is_waking.wait(false);
        for (int i = 0; i < 200; ++i) {
            receive({0x0F, 0x80, 0x10, 0x00, 0x20, 0x00});
            receive({0x04, 0x90, 0x01});
            receive({0x0F, 0x85});
        }
        receive({0x04, 0x90, 0x00});
    });
    cec_alert_active();
    cec_alert_inactive();
    television.join();
    std::string line;
    for (const char c : output()) {
        line += c;
        if (c == '\n') {
            const std::vector<std::string> known = {
                "RX: 0 -> F: 80 10 00 20 00\n", "RX: 0 -> F: 85\n",
                "RX: 0 -> 4: 90 01\n",          "RX: 0 -> 4: 90 00\n",
                "active source now: 2000\n",    "TV is in standby mode.\n",
                "TV is NOT in standby mode.\n", "TV on standby, sending ImageViewOn\n",
                "standby_after_alert 1\n",      "Switching TV to 1000\n"};
            EXPECT_NE(std::find(known.begin(), known.end(), line), known.end()) << line;
            line.clear();
        }
    }
}

} // namespace
