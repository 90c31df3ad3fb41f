// The doctor's full look through the CEC port, whose provider is this file. It runs in a process of its
// own, which may end or hang in the middle.

#include "cec/cec_codes.h"
#include "cec/cec_port.h"
#include "tools/doctor/television.h"

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <linux/cec.h>
#include <string>
#include <unistd.h>

namespace {

struct fake_port {
    bool ends_early = false;
    std::int32_t send_result = 0;
    std::uint8_t tx_status = 0; // 0: it was acknowledged
};
fake_port port;
cec_notification_fn report = nullptr;

class doctor_port : public testing::Test {
  protected:
    void SetUp() override {
        port = {};
    }

    static finding found(const std::string &link) {
        const findings all = look_through_port();
        return *std::ranges::find(all, link, &finding::link);
    }
};

} // namespace

extern "C" {

std::int32_t vchi_initialise(cec_instance * /*instance*/) {
    if (port.ends_early) {
        std::fputs("CEC: out of order\n", stderr);
        _exit(3);
    }
    return 0;
}

std::int32_t vchi_connect(cec_connection ** /*connections*/, std::uint32_t /*count*/,
                          cec_instance /*instance*/) {
    return 0;
}

void vc_vchi_cec_init(cec_instance /*instance*/, cec_connection ** /*connections*/,
                      std::uint32_t /*count*/) {}

void vc_cec_register_callback(cec_notification_fn callback, void * /*data*/) {
    report = callback;
}

std::int32_t vc_cec_deregister_all() {
    return 0;
}

std::int32_t vc_cec_register_command(std::uint32_t /*opcode*/) {
    return 0;
}

std::int32_t vc_cec_set_vendor_id(std::uint32_t /*id*/) {
    return 0;
}

std::int32_t vc_cec_set_osd_name(const char * /*name*/) {
    return 0;
}

std::int32_t vc_cec_get_logical_address(std::uint32_t *address) {
    *address = 4;
    return 0;
}

std::int32_t vc_cec_get_physical_address(std::uint16_t *address) {
    *address = 0x1000;
    return 0;
}

std::int32_t vc_cec_send_message(std::uint32_t /*destination*/, const std::uint8_t *payload,
                                 std::uint32_t /*length*/, std::int32_t /*is_reply*/) {
    if (port.send_result == 0) {
        report(nullptr, cec_reason::transmitted | std::uint32_t{port.tx_status} << 24,
               std::uint32_t{*payload} << 8, 0, 0, 0);
    }
    return port.send_result;
}
}

TEST_F(doctor_port, nobody_acknowledges) {
    port.tx_status = CEC_TX_STATUS_NACK | CEC_TX_STATUS_MAX_RETRIES;
    EXPECT_EQ(found("television answers").result, grade::fail);
}

TEST_F(doctor_port, question_does_not_get_onto_the_bus) {
    port.tx_status = CEC_TX_STATUS_ARB_LOST | CEC_TX_STATUS_MAX_RETRIES;
    EXPECT_EQ(found("television answers").evidence, bus_too_busy);
    port.send_result = -1;
    EXPECT_EQ(found("television answers").result, grade::cannot_tell);
    EXPECT_EQ(found("power status").evidence, bus_too_busy);
}

// What it said is not lost.
TEST_F(doctor_port, provider_that_ends_proves_nothing) {
    port.ends_early = true;
    for (const finding &each : look_through_port()) {
        EXPECT_EQ(each.result, grade::cannot_tell) << each.link;
    }
    EXPECT_EQ(found("adapter").evidence, "/dev/cec0, fake does not answer: CEC: out of order");
}
