// The doctor's look at the kernel's CEC device beside the service, whose device is replaced at link
// time: what only a real kernel shows.

#include "tools/doctor/television.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/cec.h>
#include <string>
#include <sys/ioctl.h>
#include <vector>

namespace {

constexpr int descriptor = 500;

struct fake_device {
    int open_error = 0;
    std::uint32_t capabilities = CEC_CAP_LOG_ADDRS | CEC_CAP_TRANSMIT;
    std::uint16_t physical_address = 0x1000;
    std::uint8_t logical_address = 4;
    bool has_address = true;
    std::uint8_t tx_status = CEC_TX_STATUS_OK;
    std::uint8_t rx_status = CEC_RX_STATUS_OK;
    std::uint8_t power_status = 1;
    std::uint16_t active_source = 0x2000;
    std::vector<std::string> calls;
};
fake_device device;

void transmit(cec_msg &message) {
    char text[16];
    std::snprintf(text, sizeof text, "%02X:%02X %u", message.msg[0], message.msg[1], message.reply);
    device.calls.emplace_back(text);
    message.tx_status = device.tx_status;
    message.rx_status = device.tx_status == CEC_TX_STATUS_OK ? device.rx_status : std::uint8_t{0};
    if (message.reply == CEC_MSG_REPORT_POWER_STATUS) {
        message.msg[2] = device.power_status;
    } else {
        message.msg[2] = static_cast<std::uint8_t>(device.active_source >> 8);
        message.msg[3] = static_cast<std::uint8_t>(device.active_source);
    }
}

void answer(unsigned long request, void *argument) {
    switch (request) {
    case CEC_ADAP_G_CAPS: {
        auto *caps = static_cast<cec_caps *>(argument);
        std::strcpy(caps->driver, "fake"); // NOLINT(clang-analyzer-security.insecureAPI.strcpy)
        caps->capabilities = device.capabilities;
        break;
    }
    case CEC_ADAP_G_PHYS_ADDR:
        *static_cast<std::uint16_t *>(argument) = device.physical_address;
        break;
    case CEC_ADAP_G_LOG_ADDRS: {
        auto *addresses = static_cast<cec_log_addrs *>(argument);
        addresses->num_log_addrs = 1;
        addresses->log_addr[0] = device.logical_address;
        addresses->log_addr_mask = device.has_address ? 1 : 0;
        break;
    }
    case CEC_TRANSMIT:
        transmit(*static_cast<cec_msg *>(argument));
        break;
    default:
        device.calls.emplace_back("another request");
        break;
    }
}

class doctor_linux : public testing::Test {
  protected:
    void SetUp() override {
        device = {};
    }

    static finding found(const std::string &link) {
        const findings all = look_beside_service(nullptr);
        return *std::ranges::find(all, link, &finding::link);
    }

    static void expect_failure(const std::string &link, const std::string &words) {
        const finding failed = found(link);
        EXPECT_EQ(failed.result, grade::fail) << failed.evidence;
        EXPECT_NE(failed.evidence.find(words), std::string::npos) << failed.evidence;
        EXPECT_EQ(failed.chapter, chapter::no_wake);
        EXPECT_NE(failed.next, "");
    }
};

} // namespace

extern "C" {

int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...) {
    if (std::strcmp(path, "/dev/cec0") != 0) {
        return __real_open(path, flags, 0);
    }
    errno = device.open_error;
    return device.open_error == 0 ? descriptor : -1;
}

int __real_close(int fd);
int __wrap_close(int fd) {
    return fd == descriptor ? 0 : __real_close(fd);
}

int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
    std::va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (fd != descriptor) {
        return __real_ioctl(fd, request, argument);
    }
    answer(request, argument);
    return 0;
}
}

TEST_F(doctor_linux, healthy_television_has_no_fault) {
    for (const finding &each : look_beside_service(nullptr)) {
        EXPECT_NE(each.result, grade::fail) << each.link;
    }
    EXPECT_EQ(found("power status").evidence, "in standby");
    EXPECT_EQ(found("active source").evidence, "2.0.0.0, another device");
    EXPECT_NE(found("adapter").evidence.find("seen beside the service"), std::string::npos);
}

// It becomes no follower, claims nothing, and says nothing that changes a television.
TEST_F(doctor_linux, only_asks) {
    look_beside_service(nullptr);
    EXPECT_EQ(device.calls, (std::vector<std::string>{"40:8F 144", "4F:85 130"}));
}

TEST_F(doctor_linux, adapter_is_missing) {
    device.open_error = ENOENT;
    expect_failure("adapter", "/dev/cec0: there is none");
    EXPECT_EQ(found("link").result, grade::cannot_tell);
}

TEST_F(doctor_linux, adapter_is_something_else) {
    device.capabilities = CEC_CAP_TRANSMIT;
    expect_failure("adapter", "is not a CEC adapter that can play");
}

TEST_F(doctor_linux, permission_is_refused) {
    for (const int error : {EACCES, EPERM}) {
        device.open_error = error;
        expect_failure("permission", "may not be opened");
    }
}

TEST_F(doctor_linux, link_is_missing) {
    for (const std::uint16_t address : {std::uint16_t{0xFFFF}, std::uint16_t{0}}) {
        device.physical_address = address;
        device.has_address = false;
        expect_failure("link", "no television is found");
        EXPECT_EQ(found("logical address").result, grade::cannot_tell);
    }
    EXPECT_TRUE(device.calls.empty());
}

TEST_F(doctor_linux, logical_address_is_missing) {
    device.has_address = false;
    expect_failure("logical address", "none is claimed");
    EXPECT_EQ(found("television answers").result, grade::cannot_tell);
}

TEST_F(doctor_linux, nobody_answers) {
    device.tx_status = CEC_TX_STATUS_NACK | CEC_TX_STATUS_MAX_RETRIES;
    expect_failure("television answers", "no device acknowledges");
    EXPECT_EQ(found("power status").result, grade::cannot_tell);
}

TEST_F(doctor_linux, power_status_is_not_told) {
    device.rx_status = CEC_RX_STATUS_TIMEOUT;
    expect_failure("power status", "does not tell it: the service takes it for awake");
    EXPECT_EQ(found("television answers").result, grade::ok);
}

TEST_F(doctor_linux, power_status_is_refused) {
    device.rx_status = CEC_RX_STATUS_OK | CEC_RX_STATUS_FEATURE_ABORT;
    expect_failure("power status", "refuses to tell it");
}

TEST_F(doctor_linux, service_does_not_have_the_adapter) {
    process service;
    service.pid = getpid();
    const findings all = look_beside_service(&service);
    EXPECT_EQ(all.back().result, grade::fail);
    EXPECT_EQ(all.back().evidence, "the service does not have /dev/cec0 open");
}
