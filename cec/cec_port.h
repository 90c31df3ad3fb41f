#pragma once

#include <cstdint>

/// The CEC port: the operations through which the CEC logic reaches the bus. A provider in
/// cec/port/, selected at build time, implements them. They carry the names and the calling
/// conventions of the board's own host interface libraries, so that on the board these are the
/// provider.
///
/// Unless said otherwise an operation returns 0 for success. Nothing here blocks longer than the
/// bus takes. Sends may come from the callback's thread too.
extern "C" {

using cec_instance = void *;   ///< an open message queue to the CEC service
using cec_connection = void *; ///< a connection of that service

/// A notification, delivered on the provider's thread.
///
/// param0       bits 0-15 the reason (1 transmitted, 2 received, others: other notifications),
///              bits 16-23 the message's length in bytes with its header, bits 24-31 a result code
/// param1 to 4  the message, up to 16 bytes, least significant byte first; byte 0 is the header
///              (initiator in the high nibble, destination in the low one), byte 1 the opcode
using cec_notification_fn = void (*)(void *callback_data, std::uint32_t param0,
                                     std::uint32_t param1, std::uint32_t param2,
                                     std::uint32_t param3, std::uint32_t param4);

/// Opens the message queue instance; fills in its handle.
std::int32_t vchi_initialise(cec_instance *instance);

/// Connects the instance. There is no list of connections: null and 0.
std::int32_t vchi_connect(cec_connection **connections, std::uint32_t count, cec_instance instance);

/// Starts the CEC service on the instance; fills in one connection handle (count 1).
void vc_vchi_cec_init(cec_instance instance, cec_connection **connections, std::uint32_t count);

/// Delivers every notification to the function from now on.
void vc_cec_register_callback(cec_notification_fn callback, void *callback_data);

/// Stops forwarding any opcode.
std::int32_t vc_cec_deregister_all();

/// Forwards received messages with this opcode.
std::int32_t vc_cec_register_command(std::uint32_t opcode);

/// Fills in the logical address claimed for the unit, 0 to 15.
std::int32_t vc_cec_get_logical_address(std::uint32_t *logical_address);

/// Announces the 24-bit vendor id.
std::int32_t vc_cec_set_vendor_id(std::uint32_t vendor_id);

/// Announces the on-screen display name, at most 14 characters.
std::int32_t vc_cec_set_osd_name(const char *name);

/// Fills in the unit's physical address, nibbles a.b.c.d.
std::int32_t vc_cec_get_physical_address(std::uint16_t *physical_address);

/// Sends one message from the unit to the destination (0 to 15, 15 for all): opcode and operands,
/// length bytes of them, at most 15. is_reply is a boolean.
std::int32_t vc_cec_send_message(std::uint32_t destination, const std::uint8_t *payload,
                                 std::uint32_t length, std::int32_t is_reply);

/// Broadcasts ActiveSource with the physical address. is_reply is a boolean.
std::int32_t vc_cec_send_ActiveSource(std::uint16_t physical_address, std::int32_t is_reply);
}

/// The other direction, implemented by the logic: a provider whose bus or adapter is gone for good
/// calls this on its own thread, after reporting it on standard error. From then on nothing waits
/// for the television.
void cec_television_lost();
