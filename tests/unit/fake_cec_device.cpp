#include "fake_cec_device.h"

#include "wrapped_names.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/ioctl.h>

namespace fake_cec_device {

namespace {

constexpr int descriptor = 500;

std::mutex mutex;
std::condition_variable changed;
settings current;
std::vector<std::string> recorded;
std::vector<cec_log_addrs> recorded_claims;
std::deque<cec_msg> messages;
std::deque<cec_event> events;
cec_log_addrs log_addrs;
std::uint32_t sequence;
bool is_open;
bool is_removed;
bool is_interrupted;

void record(const std::string &call) {
    recorded.push_back(call);
}

std::string formatted(const char *format, unsigned value) {
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

void push_state_change() {
    cec_event event{};
    event.event = CEC_EVENT_STATE_CHANGE;
    event.state_change.phys_addr = current.physical_address;
    event.state_change.log_addr_mask = log_addrs.log_addr_mask;
    events.push_back(event);
    changed.notify_all();
}

void complete_claim() {
    if (log_addrs.num_log_addrs != 0 && current.physical_address != CEC_PHYS_ADDR_INVALID) {
        log_addrs.log_addr[0] = current.logical_address;
        log_addrs.log_addr_mask = static_cast<__u16>(1U << current.logical_address);
    }
    push_state_change();
}

int set_log_addrs(cec_log_addrs &wanted) {
    record("S_LOG_ADDRS " + std::to_string(wanted.num_log_addrs));
    recorded_claims.push_back(wanted);
    if (wanted.num_log_addrs != 0 && log_addrs.num_log_addrs != 0) {
        return EBUSY;
    }
    log_addrs = wanted;
    log_addrs.log_addr_mask = 0;
    if (wanted.num_log_addrs == 0 || !current.is_claiming_late) {
        complete_claim();
    }
    return 0;
}

int transmit(cec_msg &message) {
    std::string call = "TRANSMIT";
    for (__u32 i = 0; i < message.len; ++i) {
        call += formatted(i == 0 ? " %02X" : ":%02X", message.msg[i]);
    }
    record(call);
    const bool is_registered = message.msg[0] >> 4 != CEC_LOG_ADDR_UNREGISTERED;
    if (log_addrs.log_addr_mask == 0 && is_registered) {
        return ENONET;
    }
    message.sequence = ++sequence;
    cec_msg result = message;
    result.tx_status = current.tx_status;
    messages.push_back(result);
    changed.notify_all();
    return 0;
}

template <typename element> int take(std::deque<element> &queue, void *argument) {
    if (queue.empty()) {
        return EAGAIN;
    }
    std::memcpy(argument, &queue.front(), sizeof(element));
    queue.pop_front();
    return 0;
}

int answer(unsigned long request, void *argument) {
    if (is_removed) {
        return ENODEV;
    }
    const auto failing = current.errors.find(request);
    switch (request) {
    case CEC_S_MODE:
        record(formatted("S_MODE 0x%02x", *static_cast<__u32 *>(argument)));
        break;
    case CEC_TRANSMIT:
        if (failing != current.errors.end()) {
            transmit(*static_cast<cec_msg *>(argument));
        }
        break;
    default:
        break;
    }
    if (failing != current.errors.end()) {
        return failing->second;
    }
    switch (request) {
    case CEC_ADAP_G_CAPS:
        static_cast<cec_caps *>(argument)->capabilities = current.capabilities;
        return 0;
    case CEC_S_MODE:
        return 0;
    case CEC_ADAP_G_LOG_ADDRS:
        *static_cast<cec_log_addrs *>(argument) = log_addrs;
        return 0;
    case CEC_ADAP_S_LOG_ADDRS:
        return set_log_addrs(*static_cast<cec_log_addrs *>(argument));
    case CEC_ADAP_G_PHYS_ADDR:
        *static_cast<__u16 *>(argument) = current.physical_address;
        return 0;
    case CEC_TRANSMIT:
        return transmit(*static_cast<cec_msg *>(argument));
    case CEC_RECEIVE:
        return take(messages, argument);
    case CEC_DQEVENT:
        return take(events, argument);
    default:
        return ENOTTY;
    }
}

} // namespace

void reset(const settings &with) {
    const std::lock_guard lock(mutex);
    current = with;
    recorded.clear();
    recorded_claims.clear();
    messages.clear();
    events.clear();
    log_addrs = {};
    is_open = is_removed = is_interrupted = false;
}

std::vector<std::string> calls(const std::string &prefix) {
    const std::lock_guard lock(mutex);
    std::vector<std::string> found;
    for (const std::string &call : recorded) {
        if (call.starts_with(prefix)) {
            found.push_back(call);
        }
    }
    return found;
}

std::vector<cec_log_addrs> claims() {
    const std::lock_guard lock(mutex);
    return recorded_claims;
}

void finish_claim() {
    const std::lock_guard lock(mutex);
    complete_claim();
}

void change_state() {
    const std::lock_guard lock(mutex);
    push_state_change();
}

void plug(std::uint16_t physical_address) {
    const std::lock_guard lock(mutex);
    current.physical_address = physical_address;
    log_addrs.log_addr_mask = 0;
    complete_claim();
}

void receive(const std::vector<std::uint8_t> &message) {
    const std::lock_guard lock(mutex);
    cec_msg received{};
    received.len = static_cast<__u32>(message.size());
    std::copy(message.begin(), message.end(), received.msg);
    received.rx_status = CEC_RX_STATUS_OK;
    messages.push_back(received);
    changed.notify_all();
}

void lose_messages() {
    const std::lock_guard lock(mutex);
    cec_event event{};
    event.event = CEC_EVENT_LOST_MSGS;
    events.push_back(event);
    changed.notify_all();
}

void interrupt() {
    const std::lock_guard lock(mutex);
    is_interrupted = true;
    changed.notify_all();
}

void remove() {
    const std::lock_guard lock(mutex);
    is_removed = true;
    changed.notify_all();
}

void wait_until_closed() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [] { return !is_open; });
}

void transmit_with(std::uint8_t tx_status) {
    const std::lock_guard lock(mutex);
    current.tx_status = tx_status;
}

} // namespace fake_cec_device

using namespace fake_cec_device;

extern "C" {

int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...) {
    if (std::strcmp(path, "/dev/cec0") != 0) {
        return __real_open(path, flags, 0);
    }
    const std::lock_guard lock(mutex);
    record("open " + std::to_string(flags));
    if (current.open_error != 0) {
        errno = current.open_error;
        return -1;
    }
    is_open = true;
    return descriptor;
}

int __real_fcntl(int fd, int command, ...);
int __wrap_fcntl(int fd, int command, ...) {
    std::va_list arguments;
    va_start(arguments, command);
    const int value = va_arg(arguments, int);
    va_end(arguments);
    if (fd != descriptor) {
        return __real_fcntl(fd, command, value);
    }
    const std::lock_guard lock(mutex);
    if (command == F_SETFD && value == FD_CLOEXEC) {
        record("close-on-exec");
    }
    return 0;
}

int __real_close(int fd);
int __wrap_close(int fd) {
    if (fd != descriptor) {
        return __real_close(fd);
    }
    const std::lock_guard lock(mutex);
    record("close");
    is_open = false;
    changed.notify_all();
    return 0;
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    std::va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    const std::lock_guard lock(mutex);
    const int error = fd == descriptor ? answer(request, argument) : EBADF;
    errno = error;
    return error == 0 ? 0 : -1;
}

int __wrap_poll(pollfd *entries, nfds_t /*count*/, int /*timeout*/) {
    std::unique_lock lock(mutex);
    is_removed |= current.is_removed_at_end && messages.empty() && events.empty();
    changed.wait(
        lock, [] { return is_interrupted || is_removed || !messages.empty() || !events.empty(); });
    entries->revents = 0;
    if (is_interrupted) {
        is_interrupted = false;
        errno = EINTR;
        return -1;
    }
    if (is_removed) {
        entries->revents = POLLERR | POLLHUP;
    } else {
        entries->revents =
            static_cast<short>((messages.empty() ? 0 : POLLIN) | (events.empty() ? 0 : POLLPRI));
    }
    return 1;
}
}
