// The doctor's look at the kernel's CEC device beside the service, whose device is replaced at link
// time: what only a real kernel shows.

#include "tools/doctor/machine.h"
#include "tools/doctor/television.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/cec.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int descriptor = 500;

struct fake_device {
    uid_t user = 0;
    int open_error = 0;
    int transmit_error = 0;
    std::uint32_t capabilities = CEC_CAP_LOG_ADDRS | CEC_CAP_TRANSMIT;
    std::uint16_t physical_address = 0x1000;
    std::uint8_t logical_address = 4;
    bool is_asked_for = true;
    bool has_address = true;
    int claim_takes = 0; // looks, until it has an address
    int pauses = 0;
    std::uint8_t tx_status = CEC_TX_STATUS_OK;
    std::uint8_t rx_status = CEC_RX_STATUS_OK;
    std::uint8_t power_status = 1;
    std::uint16_t active_source = 0x2000;
    std::vector<std::string> calls;
};
fake_device device;

void transmit(cec_msg &message) {
    char text[32];
    std::snprintf(text, sizeof text, "%02X:%02X %u flags %u", message.msg[0], message.msg[1],
                  message.reply, message.flags);
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

// Returns 0 or the error.
int answer(unsigned long request, void *argument) {
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
        addresses->num_log_addrs = device.is_asked_for ? 1 : 0;
        addresses->log_addr[0] = device.logical_address;
        addresses->log_addr_mask = device.has_address && device.claim_takes-- <= 0 ? 1 : 0;
        break;
    }
    case CEC_TRANSMIT:
        if (device.transmit_error != 0) {
            return device.transmit_error;
        }
        transmit(*static_cast<cec_msg *>(argument));
        break;
    default:
        device.calls.emplace_back("another request");
        break;
    }
    return 0;
}

class doctor_linux : public testing::Test {
  protected:
    void SetUp() override {
        device = {};
    }
    void TearDown() override {
        device = {};
    }

    static finding found(const std::string &link) {
        const findings all = look_beside_service(nullptr);
        return *std::ranges::find(all, link, &finding::link);
    }

    static void expect_unknown(const std::string &link, const std::string &words) {
        const finding unknown = found(link);
        EXPECT_EQ(unknown.result, grade::cannot_tell) << unknown.evidence;
        EXPECT_NE(unknown.evidence.find(words), std::string::npos) << unknown.evidence;
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
    errno = answer(request, argument);
    return errno == 0 ? 0 : -1;
}

uid_t __wrap_geteuid() {
    return device.user;
}

int __real_poll(pollfd *entries, nfds_t count, int timeout);
int __wrap_poll(pollfd *entries, nfds_t count, int timeout) {
    if (entries != nullptr) {
        return __real_poll(entries, count, timeout);
    }
    ++device.pauses; // which end at once
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

// It becomes no follower, claims nothing, and says nothing that changes a television. The answers are
// the service's as well.
TEST_F(doctor_linux, only_asks) {
    look_beside_service(nullptr);
    EXPECT_EQ(device.calls, (std::vector<std::string>{"40:8F 144 flags 1", "4F:85 130 flags 1"}));
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
        device.user = 0;
        expect_failure("permission", "may not be opened, even by root");
        device.user = 1000;
        expect_unknown("permission", "only root may open /dev/cec0");
    }
}

TEST_F(doctor_linux, sound_cards_controls_are_seen_by_root) {
    constexpr const char *card = " 0 [ALSA           ]: bcm2835 - bcm2835 ALSA\n";
    device.user = 1000;
    EXPECT_EQ(grade_audio(false, card).result, grade::cannot_tell);
    EXPECT_EQ(grade_audio(true, card).result, grade::ok);
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
    EXPECT_EQ(device.pauses, 40); // of 50 milliseconds
    EXPECT_EQ(found("television answers").result, grade::cannot_tell);
}

TEST_F(doctor_linux, logical_address_that_is_being_claimed_is_waited_for) {
    device.claim_takes = 3;
    EXPECT_EQ(found("logical address").evidence, "4");
    EXPECT_EQ(device.pauses, 3);
}

// A service that is not running has asked for none.
TEST_F(doctor_linux, logical_address_that_nobody_asked_for_is_no_fault) {
    device.is_asked_for = false;
    device.has_address = false;
    expect_unknown("logical address", "nobody has asked for one: the service is not running");
    EXPECT_EQ(device.pauses, 0);
    expect_unknown("television answers", "without an address nobody can be asked");
}

TEST_F(doctor_linux, nobody_answers) {
    device.tx_status = CEC_TX_STATUS_NACK | CEC_TX_STATUS_MAX_RETRIES;
    expect_failure("television answers", "no device acknowledges");
    EXPECT_EQ(found("power status").result, grade::cannot_tell);
}

// That says nothing of the television.
TEST_F(doctor_linux, question_does_not_get_onto_the_bus) {
    for (const int status : {CEC_TX_STATUS_ARB_LOST, CEC_TX_STATUS_LOW_DRIVE, CEC_TX_STATUS_ERROR,
                             CEC_TX_STATUS_TIMEOUT, CEC_TX_STATUS_ABORTED}) {
        device.tx_status = static_cast<std::uint8_t>(status | CEC_TX_STATUS_MAX_RETRIES);
        expect_unknown("television answers", "not sent: the bus is too busy or noisy");
        expect_unknown("power status", "not sent: the bus is too busy or noisy");
    }
    device.transmit_error = EBUSY;
    expect_unknown("television answers", "not sent: the bus is too busy or noisy");
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
