#pragma once

#include "hdtv/message.h"
#include "hdtv/protocol.h"

#include <array>
#include <cstdint>

/// The records that the unit sends to the gateway, each over a connection of its own.

using rollcall_reply_record = std::array<std::uint8_t, protocol::rollcall_reply::size>;

/// The answer to a roll call, with the hardware address that eth0 has now.
rollcall_reply_record make_rollcall_reply();

/// Answers a roll call to its sender, at the gateway's port: the reply, and the requests for what has
/// not arrived yet, the date and the settings. The first connection that fails is left open and
/// ends it. Blocks for up to three connects.
void answer_rollcall(message_sender sender);
