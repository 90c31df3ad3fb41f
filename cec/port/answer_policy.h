#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

/// Policy, and all of it: how the unit answers messages that the logic does not take, where the provider
/// has to answer for it. (The bus of the simulated station and the board's own libraries need none.)

struct automatic_answer {
    std::array<std::uint8_t, 3> payload; ///< opcode and operands
    std::size_t size;
};

/// The answer to a message with this header and opcode, to its initiator; none where silence is right.
/// The question for the power status is answered with "on", because who sees this unit on the bus sees
/// it on; every other message to this unit is refused as unrecognized, as CEC 12.3 asks. Broadcasts,
/// refusals and messages from unregistered devices are never answered.
std::optional<automatic_answer> choose_answer(std::uint8_t header, std::uint8_t opcode);
