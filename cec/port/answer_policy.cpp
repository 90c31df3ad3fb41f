#include "cec/port/answer_policy.h"

#include "cec/cec_codes.h"

std::optional<automatic_answer> choose_answer(std::uint8_t header, std::uint8_t opcode) {
    const std::uint32_t initiator = header >> 4;
    const std::uint32_t destination = header & 0x0F;
    if (destination == cec_logical_address::broadcast ||
        initiator == cec_logical_address::unregistered || opcode == cec_opcode::feature_abort) {
        return std::nullopt;
    }
    if (opcode == cec_opcode::give_device_power_status) {
        return automatic_answer{{cec_opcode::report_power_status, cec_power_status::on}, 2};
    }
    return automatic_answer{
        {cec_opcode::feature_abort, opcode, cec_abort_reason::unrecognized_opcode}, 3};
}
