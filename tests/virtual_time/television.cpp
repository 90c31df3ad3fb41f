#include "station.h"

#include "cec/cec_port.h"

#include <cstdio>
#include <string>

namespace virtual_time {

namespace {

constexpr std::uint32_t unit = 4;
constexpr std::uint16_t physical = 0x1000;
constexpr std::int64_t echo_delay = 50; // ms
constexpr std::int64_t wake_time = 2500;

cec_notification_fn callback;

std::string hex(const char *format, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

void answer(unsigned char opcode) {
    if (world.tv.manner == television_manner::deaf || world.tv.is_lost) {
        return;
    }
    switch (opcode) {
    case 0x8F:
        world.after(world.tv.delay, kind::notification, 2,
                    {0x04, static_cast<char>(0x90), static_cast<char>(world.tv.power)});
        break;
    case 0x04:
        if (world.tv.manner == television_manner::normal && world.tv.power != 0) {
            world.after(wake_time, kind::tv_wakes);
        }
        break;
    case 0x36:
        world.tv.power = 1;
        break;
    default:
        break;
    }
}

void echo(const std::string &message) {
    if (world.tv.echoes && !world.tv.is_lost) {
        world.after(echo_delay, kind::notification, 1, message);
    }
}

} // namespace

void switch_television(int status) {
    world.tv.power = status;
}

void notify(const happening &event) {
    if (callback == nullptr || world.is_off || world.tv.is_lost) {
        return;
    }
    const int reason = event.what == kind::tv_says ? 2 : event.number;
    world.acts.add(act::notified, event.text, reason);
    ++world.counts.notifications;
    std::uint32_t words[4] = {};
    for (std::size_t i = 0; i < event.text.size() && i < 16; ++i) {
        words[i / 4] |= std::uint32_t{static_cast<unsigned char>(event.text[i])} << (8 * (i % 4));
    }
    const auto size = static_cast<std::uint32_t>(event.text.size());
    callback(nullptr, static_cast<std::uint32_t>(reason) | size << 16, words[0], words[1], words[2],
             words[3]);
}

} // namespace virtual_time

using namespace virtual_time;

extern "C" {

std::int32_t vchi_initialise(cec_instance *instance) {
    callback = nullptr;
    *instance = &world;
    world.acts.add(act::cec, "initialise", 0, world.tv.missing == 1 ? -1 : 0);
    return world.tv.missing == 1 ? -1 : 0;
}

std::int32_t vchi_connect(cec_connection ** /*connections*/, std::uint32_t /*count*/,
                          cec_instance /*instance*/) {
    world.acts.add(act::cec, "connect", 0, world.tv.missing == 2 ? -1 : 0);
    return world.tv.missing == 2 ? -1 : 0;
}

void vc_vchi_cec_init(cec_instance /*instance*/, cec_connection ** /*connections*/,
                      std::uint32_t /*count*/) {
    world.acts.add(act::cec, "start");
}

void vc_cec_register_callback(cec_notification_fn wanted, void * /*callback_data*/) {
    world.acts.add(act::cec, "register callback");
    callback = wanted;
}

std::int32_t vc_cec_deregister_all() {
    world.acts.add(act::cec, "deregister");
    return 0;
}

std::int32_t vc_cec_register_command(std::uint32_t opcode) {
    world.acts.add(act::cec, "register " + hex("%02X", opcode));
    return 0;
}

std::int32_t vc_cec_get_logical_address(std::uint32_t *logical_address) {
    *logical_address = unit;
    return 0;
}

std::int32_t vc_cec_set_vendor_id(std::uint32_t vendor_id) {
    world.acts.add(act::cec, "vendor " + hex("%06X", vendor_id));
    return 0;
}

std::int32_t vc_cec_set_osd_name(const char *name) {
    world.acts.add(act::cec, std::string("name ") + name);
    return 0;
}

std::int32_t vc_cec_get_physical_address(std::uint16_t *physical_address) {
    *physical_address = physical;
    return 0;
}

std::int32_t vc_cec_send_message(std::uint32_t destination, const std::uint8_t *payload,
                                 std::uint32_t length, std::int32_t is_reply) {
    std::string call = (is_reply != 0 ? "reply " : "send ") + hex("%X:", destination);
    std::string message(1, static_cast<char>(unit << 4 | destination));
    for (std::uint32_t i = 0; i < length; ++i) {
        call += hex(" %02X", payload[i]);
        message += static_cast<char>(payload[i]);
    }
    world.acts.add(act::cec, call);
    answer(payload[0]);
    echo(message);
    return 0;
}

std::int32_t vc_cec_send_ActiveSource(std::uint16_t physical_address, std::int32_t is_reply) {
    world.acts.add(act::cec, (is_reply != 0 ? "reply active source " : "active source ") +
                                 hex("%04X", physical_address));
    echo({static_cast<char>(unit << 4 | 0xF), static_cast<char>(0x82),
          static_cast<char>(physical_address >> 8), static_cast<char>(physical_address)});
    return 0;
}
}
