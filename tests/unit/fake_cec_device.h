#pragma once

#include <cstdint>
#include <linux/cec.h>
#include <map>
#include <string>
#include <sys/ioctl.h>
#include <vector>

/// A kernel CEC device as seen by the provider's calls: open, fcntl, close, ioctl and poll of
/// "/dev/cec0" are replaced at link time. It claims addresses and reports transmit results as the
/// kernel does.
namespace fake_cec_device {

struct settings {
    int open_error = 0;
    std::map<unsigned long, int> errors = {}; ///< request to the error that it returns
    std::uint32_t capabilities = CEC_CAP_LOG_ADDRS | CEC_CAP_TRANSMIT;
    std::uint16_t physical_address = 0x1000;
    std::uint8_t logical_address = 4; ///< the result of a claim
    bool is_claiming_late = false;    ///< a claim completes only with finish_claim
    std::uint8_t tx_status = CEC_TX_STATUS_OK;
    bool is_removed_at_end = false; ///< as soon as there is nothing more to read
};

void reset(const settings &with = {});

/// What the provider did, in order: "open 2050", "S_MODE 0x11", "S_LOG_ADDRS 1", "TRANSMIT 40:8F".
std::vector<std::string> calls(const std::string &prefix = "");
/// The argument of each CEC_ADAP_S_LOG_ADDRS.
std::vector<cec_log_addrs> claims();

void finish_claim();
/// Reports the adapter's state, as it is.
void change_state();
/// The cable: a new physical address, with which the kernel claims again, or 0xFFFF for none.
void plug(std::uint16_t physical_address);
void receive(const std::vector<std::uint8_t> &message);
void lose_messages();
/// A signal ends the provider's wait.
void interrupt();
/// Unplugs the device: poll reports it and every call returns ENODEV.
void remove();
/// Blocks until the provider has closed the device.
void wait_until_closed();
/// The result of every later transmit.
void transmit_with(std::uint8_t tx_status);

} // namespace fake_cec_device
