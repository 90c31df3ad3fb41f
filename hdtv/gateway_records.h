#pragma once

#include "hdtv/protocol.h"

#include <array>
#include <cstdint>

/// The records that the unit sends to the gateway, each over a connection of its own.

using rollcall_reply_record = std::array<std::uint8_t, protocol::rollcall_reply::size>;

/// The answer to a roll call, with the hardware address that eth0 has now.
rollcall_reply_record make_rollcall_reply();
