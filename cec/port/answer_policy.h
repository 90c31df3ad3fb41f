#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

/// The complete policy for answering messages that the logic does not handle, for providers that
/// have to answer them. (The simulated station's bus and the board's own libraries need none.)

struct automatic_answer {
    std::array<std::uint8_t, 3> payload; ///< opcode and operands
    std::size_t size;
};

/// The answer to a message with this header and opcode, to its initiator; none if it should not be
/// answered. Give Device Power Status is answered with "on", because a unit that is on the bus is
/// on; every other message to this unit is refused as unrecognized, as CEC 12.3 requires.
/// Broadcasts, refusals and messages from unregistered devices are never answered.
std::optional<automatic_answer> choose_answer(std::uint8_t header, std::uint8_t opcode);
