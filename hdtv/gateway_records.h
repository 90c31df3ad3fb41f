#pragma once

#include "hdtv/message.h"
#include "hdtv/protocol.h"

#include <array>
#include <cstdint>

/// The records that the unit sends to the gateway, each over a separate connection.

extern bool got_set_date_packet; ///< the date has arrived; never cleared, and written only here
extern bool got_hdtv_settings_packet; ///< the same for the settings

using rollcall_reply_record = std::array<std::uint8_t, protocol::rollcall_reply::size>;

/// The answer to a roll call, with eth0's current hardware address.
rollcall_reply_record make_rollcall_reply();

/// Answers a roll call to its sender, at the gateway's port: sends the reply, and requests for the
/// date and the settings if they have not arrived yet. The first connection that fails is left open
/// and ends the answer. Blocks for up to three connects.
void answer_rollcall(message_sender sender);

/// Sends the configured gateway a gratuitous roll-call reply, so that it learns of the unit after a
/// restart. Sends nothing if none is configured. Blocks for the connect.
void send_gratuitous_rollcall_reply();

/// From now on roll calls are not answered with a request for it.
void note_date_arrived();
void note_settings_arrived();

/// Resets this module to its initial state.
void reset_gateway_records_state();
