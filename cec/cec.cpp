#include "cec/cec.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "cec/cec_codes.h"
#include "cec/cec_port.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <unistd.h>

namespace {

constexpr std::int32_t no_reply = 0;

// The callback's thread and the event loop's share these; each is a single load or store.
std::atomic<std::uint16_t> physical_address;
std::atomic<bool> tv_standby;
std::atomic<std::uint16_t> last_active_address;
std::atomic<bool> is_television_lost; // the bus or the adapter is gone for good
// Lock-free on ARMv6 too: only atomic read-modify-write operations would need library support
// there.
static_assert(ATOMIC_BOOL_LOCK_FREE != 0 && ATOMIC_SHORT_LOCK_FREE != 0);

bool standby_after_alert; // set at every alert start, never cleared

void send_to_tv(std::initializer_list<std::uint8_t> payload) {
    vc_cec_send_message(cec_logical_address::tv, payload.begin(),
                        static_cast<std::uint32_t>(payload.size()), no_reply);
}

void broadcast_active_source(std::uint16_t address) {
    vc_cec_send_ActiveSource(address, no_reply);
}

// The message of a notification, header first.
using cec_message = std::array<std::uint8_t, cec_longest_message>;

cec_message unpack(std::initializer_list<std::uint32_t> words) {
    cec_message message{};
    std::size_t i = 0;
    for (const std::uint32_t word : words) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            message[i++] = static_cast<std::uint8_t>(word >> shift);
        }
    }
    return message;
}

// Assembled first and printed in one write, so that the two threads' output never mixes within a
// line. If the length claims more than a message can contain, only what is there is printed.
void trace(bool is_received, const cec_message &message, std::size_t length) {
    const bstr_owner line(
        bformat("%s: %1X -> %1X:", is_received ? "RX" : "TX", message[0] >> 4, message[0] & 0x0F));
    for (std::size_t i = 1; i < std::min(length, message.size()); ++i) {
        bformata(line.get(), " %02X", message[i]);
    }
    std::printf("%s\n", bstr_text(line.get()));
}

void take_active_source(std::uint16_t address) {
    last_active_address = address;
    std::printf("active source now: %04X\n", address);
}

void take_power_status(std::uint8_t status) {
    const bool is_standby = status == cec_power_status::standby;
    tv_standby = is_standby;
    std::printf("TV is %sin standby mode.\n", is_standby ? "" : "NOT ");
}

// From any sender: a power status is accepted from every device, not only from the television.
void act_on(const cec_message &message) {
    switch (message[1]) {
    case cec_opcode::routing_change:
        take_active_source(static_cast<std::uint16_t>(message[4] * 256 + message[5]));
        break;
    case cec_opcode::active_source:
        // Deliberately the first operand byte alone; a routing change uses both.
        take_active_source(message[2]);
        break;
    case cec_opcode::request_active_source:
        broadcast_active_source(physical_address);
        break;
    case cec_opcode::report_power_status:
        take_power_status(message[2]);
        break;
    default:
        break;
    }
}

void cec_callback(void * /*callback_data*/, std::uint32_t param0, std::uint32_t param1,
                  std::uint32_t param2, std::uint32_t param3, std::uint32_t param4) {
    const bool is_received = (param0 & 0xFFFF) == cec_reason::received;
    const std::size_t length = (param0 >> 16) & 0xFF;
    const cec_message message = unpack({param1, param2, param3, param4});
    trace(is_received, message, length);
    if (is_received) {
        act_on(message);
    }
}

bool open_cec_service() {
    cec_instance instance = nullptr;
    if (vchi_initialise(&instance) != 0) {
        std::puts("failed to open vchiq instance");
        return false;
    }
    const std::int32_t connected = vchi_connect(nullptr, 0, instance);
    if (connected != 0) {
        std::puts("VCHI connection failed");
        return false;
    }
    cec_connection *connection = nullptr;
    vc_vchi_cec_init(instance, &connection, 1);
    // Starting the service returns no result; this tests the result of the connection again.
    if (connected != 0) {
        std::puts("VCHI CEC connection failed");
        return false;
    }
    return true;
}

void choose_notifications() {
    vc_cec_register_callback(cec_callback, nullptr);
    vc_cec_deregister_all();
    for (const std::uint8_t forwarded :
         {cec_opcode::active_source, cec_opcode::report_power_status, cec_opcode::routing_change}) {
        vc_cec_register_command(forwarded);
    }
}

void announce_unit() {
    std::uint32_t logical_address = 0;
    vc_cec_get_logical_address(&logical_address);
    std::printf("logical_address: 0x%x\n", logical_address);
    vc_cec_set_vendor_id(cec_vendor_id);
    vc_cec_set_osd_name(cec_osd_name);
    std::uint16_t own = 0;
    vc_cec_get_physical_address(&own);
    physical_address = own;
    std::printf("physical_address: 0x%x\n", own);
    last_active_address = own;
}

void hand_back_to(std::uint16_t previous) {
    const std::uint16_t own = physical_address;
    if (previous == own) {
        return;
    }
    if (previous == 0) {
        // The television's own tuner or inputs. The operands are deliberate: a zero byte and the
        // low byte of the unit's own address.
        send_to_tv({cec_opcode::inactive_source, 0x00, static_cast<std::uint8_t>(own)});
    } else {
        broadcast_active_source(previous);
    }
}

} // namespace

void cec_television_lost() {
    is_television_lost = true;
}

int cec_init() {
    tv_standby = false;
    is_television_lost = false;
    if (!open_cec_service()) {
        return -1;
    }
    choose_notifications();
    announce_unit();
    send_to_tv({cec_opcode::give_device_power_status});
    broadcast_active_source(physical_address);
    return 0;
}

void cec_alert_active() {
    standby_after_alert = tv_standby;
    std::printf("standby_after_alert %d\n", standby_after_alert ? 1 : 0);
    // The callback ends this loop when the television reports another power status. There is no
    // time limit: a television that never does so blocks the event loop, and with it the watchdog.
    // If the bus or the adapter is gone, there is no television to wait for.
    while (tv_standby && !is_television_lost) {
        std::puts("TV on standby, sending ImageViewOn");
        send_to_tv({cec_opcode::image_view_on});
        sleep(1);
        send_to_tv({cec_opcode::give_device_power_status});
        sleep(1);
    }
    // last_active_address still names the source to return to.
    if (last_active_address != physical_address) {
        broadcast_active_source(physical_address);
        std::printf("Switching TV to %04X\n", physical_address.load());
    }
}

void cec_alert_inactive() {
    hand_back_to(last_active_address);
    std::printf("standby_after_alert %d\n", standby_after_alert ? 1 : 0);
    if (standby_after_alert) {
        send_to_tv({cec_opcode::standby});
    }
}

void cec_poll_power_status() {
    send_to_tv({cec_opcode::give_device_power_status});
}
