// The CEC port on the kernel's CEC device (linux/cec.h; kernel documentation, "CEC - Consumer
// Electronics Control"). The kernel claims the unit's logical address, and claims it again by itself
// whenever a new physical address comes with a replugged cable; it also answers what the standard
// makes mandatory. A thread turns received messages and transmit results into notifications.
//
// Errors are reported on standard error: no adapter, no link, no answer, refused.

#include "cec/cec_codes.h"
#include "cec/cec_port.h"
#include "cec/port/answer_policy.h"
#include "cec/port/listener.h"
#include "cec/port/mutex_guard.h"
#include "cec/port/places.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/cec.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::int32_t failure = -1;
constexpr std::size_t longest_osd_name = 14;

// Longer than any claim takes on the bus: three polls of some ten milliseconds each.
constexpr std::time_t longest_claim = 2; // seconds

int device = -1;
// Locked while a thread other than the listening one uses the device.
pthread_mutex_t device_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t state_changed; // signaled on an adapter event; uses the monotonic clock
pthread_once_t state_changed_once = PTHREAD_ONCE_INIT;

std::uint32_t vendor_id = CEC_VENDOR_ID_NONE;
char osd_name[longest_osd_name + 1];

// The address that the logic believes to be its own. If the adapter has got another one since, that
// one is sent instead.
std::uint16_t reported_physical_address = CEC_PHYS_ADDR_INVALID;

std::array<std::atomic<bool>, 256> is_forwarded;

// Every call to the device goes through here. Returns 0 or the error.
int call_device(unsigned long request, void *argument) {
    return ioctl(device, request, argument) < 0 ? errno : 0;
}

void complain(const char *what) {
    std::fprintf(stderr, "CEC: %s: %s\n", cec_device, what);
}

void complain_about_open(int error) {
    switch (error) {
    case EACCES:
    case EPERM:
        complain("no permission");
        break;
    case EBUSY:
        complain("in use by another program");
        break;
    default:
        complain("no adapter");
        break;
    }
}

void prepare_state_changed() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&state_changed, &attributes);
    pthread_condattr_destroy(&attributes);
}

void close_device() {
    const mutex_guard guard(device_mutex);
    close(std::exchange(device, -1));
    pthread_cond_broadcast(&state_changed); // nobody waits for a claim any more
}

// The state of the adapter.

cec_log_addrs logical_addresses() {
    cec_log_addrs addresses{};
    if (call_device(CEC_ADAP_G_LOG_ADDRS, &addresses) != 0) {
        addresses = {};
    }
    return addresses;
}

std::uint16_t physical_address() {
    std::uint16_t address = CEC_PHYS_ADDR_INVALID;
    if (call_device(CEC_ADAP_G_PHYS_ADDR, &address) != 0) {
        address = CEC_PHYS_ADDR_INVALID;
    }
    return address;
}

// 15, unregistered, while no address is claimed.
std::uint8_t logical_address() {
    const cec_log_addrs addresses = logical_addresses();
    return addresses.log_addr_mask != 0 ? addresses.log_addr[0]
                                        : std::uint8_t{CEC_LOG_ADDR_UNREGISTERED};
}

// Without a link there is nothing that the kernel could be claiming.
bool is_claiming() {
    const cec_log_addrs addresses = logical_addresses();
    return addresses.num_log_addrs != 0 && addresses.log_addr_mask == 0 &&
           physical_address() != CEC_PHYS_ADDR_INVALID;
}

// Waits, with the device's mutex locked, while the kernel is claiming an address: until then it
// sends nothing. The listening thread must not wait, because it would wait for itself. Returns
// whether the device is still open.
bool wait_for_claim() {
    if (is_listening_thread()) {
        return device >= 0;
    }
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += longest_claim;
    int error = 0;
    while (error == 0 && is_claiming()) {
        error = pthread_cond_timedwait(&state_changed, &device_mutex, &end);
    }
    return device >= 0;
}

cec_log_addrs playback_device() {
    cec_log_addrs addresses{};
    addresses.cec_version = CEC_OP_CEC_VERSION_1_4;
    addresses.num_log_addrs = 1;
    addresses.vendor_id = vendor_id;
    addresses.flags = CEC_LOG_ADDRS_FL_ALLOW_UNREG_FALLBACK;
    std::memcpy(addresses.osd_name, osd_name, longest_osd_name);
    addresses.log_addr_type[0] = CEC_LOG_ADDR_TYPE_PLAYBACK;
    addresses.primary_device_type[0] = CEC_OP_PRIM_DEVTYPE_PLAYBACK;
    addresses.all_device_types[0] = CEC_OP_ALL_DEVTYPE_PLAYBACK;
    return addresses;
}

// The kernel accepts a name and a vendor id only as part of a claim, and a claim only when no
// address is claimed.
std::int32_t claim_logical_address() {
    const mutex_guard guard(device_mutex);
    if (device < 0 || !wait_for_claim()) {
        return failure;
    }
    if (logical_addresses().num_log_addrs != 0) {
        cec_log_addrs none{};
        call_device(CEC_ADAP_S_LOG_ADDRS, &none);
    }
    cec_log_addrs wanted = playback_device();
    const int error = call_device(CEC_ADAP_S_LOG_ADDRS, &wanted);
    if (error != 0) {
        complain(std::strerror(error));
        return failure;
    }
    return 0;
}

// Messages out. The device does not block: the outcome arrives as a message of its own.

int transmit(std::uint8_t initiator, std::uint32_t destination, const std::uint8_t *payload,
             std::uint32_t length) {
    cec_msg message{};
    message.msg[0] =
        static_cast<std::uint8_t>(std::uint32_t{initiator} << 4 | (destination & 0x0F));
    std::copy_n(payload, length, message.msg + 1);
    message.len = length + 1;
    return call_device(CEC_TRANSMIT, &message);
}

std::int32_t send_message(std::uint32_t destination, const std::uint8_t *payload,
                          std::uint32_t length) {
    const mutex_guard guard(device_mutex);
    if (device < 0 || length >= CEC_MAX_MSG_SIZE || !wait_for_claim()) {
        return failure;
    }
    const std::uint8_t initiator = logical_address();
    int error = transmit(initiator, destination, payload, length);
    if (error == ENONET && initiator != CEC_LOG_ADDR_UNREGISTERED) {
        // The link has just been lost. A television may still be woken without an address.
        error = transmit(CEC_LOG_ADDR_UNREGISTERED, destination, payload, length);
    }
    if (error != 0) {
        complain(error == ENONET ? "no link" : std::strerror(error));
        return failure;
    }
    return 0;
}

// Messages in.

void take_transmit_result(const cec_msg &message) {
    const bool is_sent = (message.tx_status & CEC_TX_STATUS_OK) != 0;
    if (!is_sent) {
        const bool is_refused = (message.tx_status & CEC_TX_STATUS_NACK) != 0;
        complain(is_refused ? "no answer" : "not sent");
    }
    notify(pack_notification(cec_reason::transmitted, is_sent ? std::uint8_t{0} : message.tx_status,
                             message.msg, message.len));
}

void answer(const cec_msg &message) {
    const auto chosen = choose_answer(message.msg[0], message.msg[1]);
    if (chosen) {
        send_message(message.msg[0] >> 4, chosen->payload.data(),
                     static_cast<std::uint32_t>(chosen->size));
    }
}

void take_message(const cec_msg &message) {
    if (cec_msg_recv_is_tx_result(&message) != 0) {
        take_transmit_result(message);
    } else if (message.len < 2) {
        return; // a poll
    } else if (is_forwarded[message.msg[1]]) {
        notify(pack_notification(cec_reason::received, 0, message.msg, message.len));
    } else {
        answer(message);
    }
}

void take_state_change(const cec_event_state_change &state) {
    if (state.phys_addr == CEC_PHYS_ADDR_INVALID) {
        complain("no link");
    }
    // Signal after taking the lock, so that no waiting thread can miss it.
    const mutex_guard guard(device_mutex);
    pthread_cond_broadcast(&state_changed);
}

// These two read everything available. They return false when the device is gone.

bool take_events() {
    for (;;) {
        cec_event event{};
        const int error = call_device(CEC_DQEVENT, &event);
        if (error != 0) {
            return error != ENODEV;
        }
        if (event.event == CEC_EVENT_STATE_CHANGE) {
            take_state_change(event.state_change);
        } else if (event.event == CEC_EVENT_LOST_MSGS) {
            complain("messages were lost");
        }
    }
}

bool take_messages() {
    for (;;) {
        cec_msg message{};
        const int error = call_device(CEC_RECEIVE, &message);
        if (error != 0) {
            return error != ENODEV;
        }
        take_message(message);
    }
}

void watch_device() {
    wait_for_callback();
    for (bool is_there = true; is_there;) {
        pollfd entry = {device, POLLIN | POLLPRI, 0};
        if (poll(&entry, 1, -1) < 0) {
            is_there = errno == EINTR;
            continue;
        }
        is_there = (entry.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
        if (is_there && (entry.revents & POLLPRI) != 0) {
            is_there = take_events();
        }
        if (is_there && (entry.revents & POLLIN) != 0) {
            is_there = take_messages();
        }
    }
    complain("the adapter is gone");
    cec_television_lost();
    close_device();
}

bool is_usable() {
    cec_caps capabilities{};
    constexpr std::uint32_t needed = CEC_CAP_LOG_ADDRS | CEC_CAP_TRANSMIT;
    if (call_device(CEC_ADAP_G_CAPS, &capabilities) != 0) {
        complain("not a CEC device");
        return false;
    }
    if ((capabilities.capabilities & needed) != needed) {
        complain("the adapter cannot be a playback device");
        return false;
    }
    // Not the exclusive initiator: a technician's tools should work alongside the service. Without
    // pass-through the kernel gives the mandatory answers and keeps the remote control's keys away.
    std::uint32_t mode = CEC_MODE_INITIATOR | CEC_MODE_EXCL_FOLLOWER;
    const int error = call_device(CEC_S_MODE, &mode);
    if (error != 0) {
        complain_about_open(error);
        return false;
    }
    return true;
}

// Replaces what the logic believes to be its own address with the adapter's current one.
std::uint16_t present_address(std::uint16_t address) {
    const mutex_guard guard(device_mutex);
    return address == reported_physical_address ? physical_address() : address;
}

} // namespace

extern "C" {

std::int32_t vchi_initialise(cec_instance *instance) {
    pthread_once(&state_changed_once, prepare_state_changed);
    const mutex_guard guard(device_mutex);
    device = open(cec_device, O_RDWR | O_NONBLOCK);
    if (device < 0) {
        complain_about_open(errno);
        return failure;
    }
    fcntl(device, F_SETFD, FD_CLOEXEC);
    *instance = &device;
    return 0;
}

std::int32_t vchi_connect(cec_connection ** /*connections*/, std::uint32_t /*count*/,
                          cec_instance /*instance*/) {
    if (!is_usable()) {
        close_device();
        return failure;
    }
    return 0;
}

void vc_vchi_cec_init(cec_instance /*instance*/, cec_connection ** /*connections*/,
                      std::uint32_t /*count*/) {
    claim_logical_address();
    const int error = start_listening_thread(watch_device);
    if (error != 0) {
        complain(std::strerror(error));
        close_device();
    }
}

std::int32_t vc_cec_deregister_all() {
    for (std::atomic<bool> &forwarded : is_forwarded) {
        forwarded = false;
    }
    return 0;
}

std::int32_t vc_cec_register_command(std::uint32_t opcode) {
    if (opcode >= is_forwarded.size()) {
        return failure;
    }
    is_forwarded[opcode] = true;
    return 0;
}

std::int32_t vc_cec_get_logical_address(std::uint32_t *address) {
    const mutex_guard guard(device_mutex);
    if (device < 0 || !wait_for_claim()) {
        return failure;
    }
    *address = logical_address();
    return 0;
}

std::int32_t vc_cec_set_vendor_id(std::uint32_t id) {
    vendor_id = id;
    return claim_logical_address();
}

std::int32_t vc_cec_set_osd_name(const char *name) {
    // A longer name is truncated; a shorter one is padded with zeros.
    std::strncpy(osd_name, name, longest_osd_name);
    return claim_logical_address();
}

std::int32_t vc_cec_get_physical_address(std::uint16_t *address) {
    const mutex_guard guard(device_mutex);
    if (device < 0) {
        return failure;
    }
    *address = reported_physical_address = physical_address();
    return 0;
}

std::int32_t vc_cec_send_message(std::uint32_t destination, const std::uint8_t *payload,
                                 std::uint32_t length, std::int32_t /*is_reply*/) {
    return send_message(destination, payload, length);
}

std::int32_t vc_cec_send_ActiveSource(std::uint16_t address, std::int32_t /*is_reply*/) {
    address = present_address(address);
    const std::uint8_t payload[] = {cec_opcode::active_source,
                                    static_cast<std::uint8_t>(address >> 8),
                                    static_cast<std::uint8_t>(address)};
    return send_message(CEC_LOG_ADDR_BROADCAST, payload, sizeof payload);
}
}
