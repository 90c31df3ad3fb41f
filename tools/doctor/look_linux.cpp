// A look at the kernel's CEC device. While the service is its exclusive follower, another opener may
// still ask, and gets the answers to its own questions; what others send to the unit, and what they
// say on their own, only the service sees. The kernel is told to give those answers to the service as
// well: an Active Source that comes as an answer changes what the service believes to be shown.

#include "cec/cec_codes.h"
#include "cec/port/places.h"
#include "tools/doctor/television.h"
#include "tools/gatewayctl/descriptor_owner.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/cec.h>
#include <poll.h>
#include <sys/ioctl.h>

namespace {

constexpr std::uint32_t patience = 1000; // milliseconds, for the answer to a question

// Longer than any claim takes on the bus.
constexpr int longest_claim = 2000; // milliseconds
constexpr int pause_in_claim = 50;

// Every call to the device goes through here. Returns 0 or the error.
int call(const descriptor_owner &device, unsigned long request, void *argument) {
    return ioctl(device.get(), request, argument) < 0 ? errno : 0;
}

adapter_state state_after(int error) {
    switch (error) {
    case 0:
        return adapter_state::open;
    case EACCES:
    case EPERM:
        return adapter_state::forbidden;
    default:
        return adapter_state::missing;
    }
}

adapter_state open_adapter(descriptor_owner &device, cec_caps &abilities) {
    device = descriptor_owner(open(cec_device, O_RDWR | O_CLOEXEC));
    const adapter_state state = state_after(device.get() < 0 ? errno : 0);
    if (state != adapter_state::open) {
        return state;
    }
    constexpr std::uint32_t needed = CEC_CAP_LOG_ADDRS | CEC_CAP_TRANSMIT;
    const bool can_play = call(device, CEC_ADAP_G_CAPS, &abilities) == 0 &&
                          (abilities.capabilities & needed) == needed;
    return can_play ? adapter_state::open : adapter_state::broken;
}

std::string name_of(const cec_caps &abilities) {
    const std::string driver(abilities.driver, strnlen(abilities.driver, sizeof abilities.driver));
    return driver.empty() ? cec_device : std::string(cec_device) + ", " + driver;
}

std::optional<std::uint16_t> read_physical_address(const descriptor_owner &device) {
    std::uint16_t physical = CEC_PHYS_ADDR_INVALID;
    return call(device, CEC_ADAP_G_PHYS_ADDR, &physical) == 0 ? std::optional(physical)
                                                              : std::nullopt;
}

std::optional<cec_log_addrs> read_logical_addresses(const descriptor_owner &device) {
    cec_log_addrs addresses{};
    return call(device, CEC_ADAP_G_LOG_ADDRS, &addresses) == 0 ? std::optional(addresses)
                                                               : std::nullopt;
}

bool is_claiming(const descriptor_owner &device, const std::optional<cec_log_addrs> &addresses) {
    return addresses && addresses->num_log_addrs != 0 && addresses->log_addr_mask == 0 &&
           read_physical_address(device).value_or(CEC_PHYS_ADDR_INVALID) != CEC_PHYS_ADDR_INVALID;
}

// The kernel may be claiming one at the moment, above all after a cable has been plugged in.
std::optional<cec_log_addrs> logical_addresses(const descriptor_owner &device) {
    auto addresses = read_logical_addresses(device);
    for (int waited = 0; waited < longest_claim && is_claiming(device, addresses);
         waited += pause_in_claim) {
        poll(nullptr, 0, pause_in_claim);
        addresses = read_logical_addresses(device);
    }
    return addresses;
}

void read_addresses(const descriptor_owner &device, const process *service, television_view &view,
                    view_notes &notes) {
    const auto addresses = logical_addresses(device);
    view.physical_address = read_physical_address(device);
    if (addresses && addresses->num_log_addrs == 0) {
        notes.address = std::string("nobody has asked for one") +
                        (service == nullptr ? ": the service is not running" : "");
    } else if (addresses) {
        view.logical_address = addresses->log_addr_mask != 0
                                   ? addresses->log_addr[0]
                                   : std::uint8_t{CEC_LOG_ADDR_UNREGISTERED};
    }
}

// Blocks until the answer has come, or the patience is at its end. The service, too, gets the answer.
cec_msg ask(const descriptor_owner &device, std::uint8_t from, std::uint32_t to,
            std::uint8_t question, std::uint8_t answer) {
    cec_msg message{};
    message.len = 2;
    message.msg[0] = static_cast<std::uint8_t>(std::uint32_t{from} << 4 | to);
    message.msg[1] = question;
    message.reply = answer;
    message.timeout = patience;
    message.flags = CEC_MSG_FL_REPLY_TO_FOLLOWERS;
    if (call(device, CEC_TRANSMIT, &message) != 0) {
        message.tx_status = CEC_TX_STATUS_ERROR;
        message.rx_status = 0;
    }
    return message;
}

void take_sent(std::uint8_t status, television_view &view) {
    if ((status & CEC_TX_STATUS_OK) != 0) {
        view.is_answered = true;
    } else if (is_unacknowledged(status)) {
        view.is_answered = false;
    } else {
        view.is_unsent = true;
    }
}

void ask_for_power(const descriptor_owner &device, television_view &view) {
    const cec_msg answer =
        ask(device, *view.logical_address, cec_logical_address::tv,
            cec_opcode::give_device_power_status, cec_opcode::report_power_status);
    take_sent(answer.tx_status, view);
    if ((answer.rx_status & CEC_RX_STATUS_FEATURE_ABORT) != 0) {
        view.power = power_answer::refused;
    } else if ((answer.rx_status & CEC_RX_STATUS_OK) != 0) {
        view.power = power_answer::told;
        view.power_status = answer.msg[2];
    }
}

void ask_for_active_source(const descriptor_owner &device, television_view &view) {
    const cec_msg answer = ask(device, *view.logical_address, cec_logical_address::broadcast,
                               cec_opcode::request_active_source, cec_opcode::active_source);
    if ((answer.rx_status & CEC_RX_STATUS_OK) != 0) {
        view.active_source = static_cast<std::uint16_t>(answer.msg[2] << 8 | answer.msg[3]);
    }
}

// What the adapter, which is open, lets be seen.
void look_at_bus(const descriptor_owner &device, const process *service, television_view &view,
                 view_notes &notes) {
    read_addresses(device, service, view, notes);
    if (view.logical_address.value_or(CEC_LOG_ADDR_UNREGISTERED) == CEC_LOG_ADDR_UNREGISTERED) {
        notes.limit = "without an address nobody can be asked";
        return;
    }
    notes.adapter += "; seen beside the service: --stop-service looks in its place";
    ask_for_power(device, view);
    ask_for_active_source(device, view);
    if (view.is_unsent) {
        notes.limit = bus_too_busy;
    }
}

} // namespace

adapter_probe probe_adapter() {
    descriptor_owner device;
    cec_caps abilities{};
    const adapter_state state = open_adapter(device, abilities);
    return {state, name_of(abilities)};
}

findings look_beside_service(const process *service) {
    descriptor_owner device;
    cec_caps abilities{};
    television_view view;
    view.adapter = open_adapter(device, abilities);
    view_notes notes;
    notes.adapter = name_of(abilities);
    notes.limit = "the adapter cannot be asked";
    if (view.adapter == adapter_state::open) {
        look_at_bus(device, service, view, notes);
    }
    findings found = grade_television(view, notes);
    found.push_back(grade_holding(service, cec_device));
    return found;
}

bool is_unacknowledged(std::uint8_t result) {
    return (result & CEC_TX_STATUS_NACK) != 0;
}
