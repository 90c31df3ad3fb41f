#include "recording_port.h"

#include <cstdio>
#include <mutex>

namespace recording_port {

std::function<void(const std::string &)> on_call;

namespace {

settings current;
std::vector<std::string> recorded;
std::mutex mutex;
cec_notification_fn notification;
int data_marker; // what the callback's data must not be

std::string hex(const char *format, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

} // namespace

void reset(const settings &with) {
    current = with;
    forget_calls();
}

std::vector<std::string> calls() {
    const std::lock_guard lock(mutex);
    return recorded;
}

void forget_calls() {
    const std::lock_guard lock(mutex);
    recorded.clear();
}

void record(const std::string &call) {
    const std::lock_guard lock(mutex);
    recorded.push_back(call);
    if (on_call) {
        on_call(call);
    }
}

void raw(std::uint32_t param0, std::initializer_list<std::uint8_t> message) {
    std::uint32_t words[4] = {};
    unsigned i = 0;
    for (const std::uint8_t byte : message) {
        words[i / 4] |= std::uint32_t{byte} << (8 * (i % 4));
        ++i;
    }
    raw_words(param0, words);
}

void raw_words(std::uint32_t param0, const std::uint32_t (&words)[4]) {
    notification(&data_marker, param0, words[0], words[1], words[2], words[3]);
}

void receive(std::initializer_list<std::uint8_t> message) {
    raw(2 | static_cast<std::uint32_t>(message.size()) << 16, message);
}

void transmitted(std::initializer_list<std::uint8_t> message) {
    raw(1 | static_cast<std::uint32_t>(message.size()) << 16, message);
}

} // namespace recording_port

using namespace recording_port;

extern "C" {

std::int32_t vchi_initialise(cec_instance *instance) {
    record("vchi_initialise");
    *instance = &current;
    return current.initialise_result;
}

std::int32_t vchi_connect(cec_connection **connections, std::uint32_t count,
                          cec_instance instance) {
    const bool is_right = connections == nullptr && count == 0 && instance == &current;
    record(is_right ? "vchi_connect" : "vchi_connect with other arguments");
    return current.connect_result;
}

void vc_vchi_cec_init(cec_instance instance, cec_connection **connections, std::uint32_t count) {
    const bool is_right = connections != nullptr && count == 1 && instance == &current;
    record(is_right ? "vc_vchi_cec_init" : "vc_vchi_cec_init with other arguments");
}

void vc_cec_register_callback(cec_notification_fn callback, void *callback_data) {
    record(callback_data == nullptr ? "register callback" : "register callback with data");
    notification = callback;
}

std::int32_t vc_cec_deregister_all() {
    record("deregister");
    return 0;
}

std::int32_t vc_cec_register_command(std::uint32_t opcode) {
    record("register " + hex("%02X", opcode));
    return 0;
}

std::int32_t vc_cec_get_logical_address(std::uint32_t *logical_address) {
    record("get logical address");
    *logical_address = current.logical_address;
    return 0;
}

std::int32_t vc_cec_set_vendor_id(std::uint32_t vendor_id) {
    record("vendor " + hex("%06X", vendor_id));
    return 0;
}

std::int32_t vc_cec_set_osd_name(const char *name) {
    record(std::string("osd ") + name);
    return 0;
}

std::int32_t vc_cec_get_physical_address(std::uint16_t *physical_address) {
    record("get physical address");
    *physical_address = current.physical_address;
    return 0;
}

std::int32_t vc_cec_send_message(std::uint32_t destination, const std::uint8_t *payload,
                                 std::uint32_t length, std::int32_t is_reply) {
    std::string call = (is_reply != 0 ? "reply " : "send ") + hex("%X:", destination);
    for (std::uint32_t i = 0; i < length; ++i) {
        call += hex(" %02X", payload[i]);
    }
    record(call);
    return 0;
}

std::int32_t vc_cec_send_ActiveSource(std::uint16_t physical_address, std::int32_t is_reply) {
    record((is_reply != 0 ? "reply active source " : "active source ") +
           hex("%04X", physical_address));
    return 0;
}
}
