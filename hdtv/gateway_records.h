#pragma once

#include "hdtv/message.h"
#include "hdtv/protocol.h"

#include <array>
#include <cstdint>

/// The records that the unit sends to the gateway, each over a connection of its own.

extern bool got_set_date_packet; ///< the date has arrived; never cleared, and written here alone
extern bool got_hdtv_settings_packet; ///< the same for the settings

using rollcall_reply_record = std::array<std::uint8_t, protocol::rollcall_reply::size>;

/// The answer to a roll call, with the hardware address that eth0 has now.
rollcall_reply_record make_rollcall_reply();

/// Answers a roll call to its sender, at the gateway's port: the reply, and the requests for what has
/// not arrived yet, the date and the settings. The first connection that fails is left open and
/// ends it. Blocks for up to three connects.
void answer_rollcall(message_sender sender);

/// The roll-call reply to the configured gateway, unasked, so that it learns of the unit after a restart.
/// Without one in the configuration nothing is sent. Blocks for the connect.
void send_gratuitous_rollcall_reply();

/// From now on the next roll call is not answered with a request for it.
void note_date_arrived();
void note_settings_arrived();

/// Back to how the process starts.
void reset_gateway_records_state();
