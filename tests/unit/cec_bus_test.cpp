#include "cec/cec.h"
#include "cec/cec_port.h"

#include "cec_bus_test.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

TEST_F(cec_bus, bus_that_goes_away_ends_the_waking_of_a_television_in_standby) {
    start();
    say("rx 04:90:01");
    std::thread bus([this] {
        while (pauses < 4) {
            std::this_thread::yield();
        }
        end_bus();
    });
    while (output().find("TV is in standby mode.\n") == std::string::npos) {
        std::this_thread::yield();
    }
    cec_alert_active();
    bus.join();
    EXPECT_EQ(errors(), "CEC bus: the connection was lost\n");
    EXPECT_NE(output().find("TV on standby, sending ImageViewOn\n"), std::string::npos);
    // Nothing is printed as received that was not.
    EXPECT_EQ(output().find("RX: 0 -> 4: 90 00"), std::string::npos);
    EXPECT_EQ(output().find("NOT in standby"), std::string::npos);

    // The next alert does not wait either.
    const unsigned before = pauses;
    cec_alert_inactive();
    cec_alert_active();
    EXPECT_EQ(pauses, before);
}

TEST_F(cec_bus, without_a_thread_there_is_no_television_and_the_service_goes_on) {
    thread_error = EAGAIN;
    start();
    EXPECT_EQ(errors(), "CEC bus: cannot start a thread: Resource temporarily unavailable\n");
    std::uint32_t logical_address = 7;
    EXPECT_NE(vc_cec_get_logical_address(&logical_address), 0);
    EXPECT_EQ(logical_address, 7U);
    EXPECT_NE(vc_cec_send_ActiveSource(0x1000, 0), 0);
    cec_alert_active();
    cec_alert_inactive();
    cec_poll_power_status();
}

TEST_F(cec_bus, skipped_line_is_said_without_its_control_characters) {
    start();
    say("\x1b[2J\x9b\\ \"\xe9\t" + std::string(100, 'x'));
    end_bus();
    EXPECT_EQ(errors(), "CEC bus: skipped the line \"\\x1b[2J\\x9b\\x5c \"\\xe9\\x09" +
                            std::string(54, 'x') + "\"\nCEC bus: the connection was lost\n");
}

TEST_F(cec_bus, name_that_a_line_cannot_hold_is_refused) {
    start();
    EXPECT_NE(vc_cec_set_osd_name(std::string(300, 'n').c_str()), 0);
    EXPECT_EQ(vc_cec_set_osd_name("ZELT"), 0);
}

} // namespace
