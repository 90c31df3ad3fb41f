#pragma once

#include <cstdint>

/// The codes of HDMI-CEC that the logic and its providers use (HDMI 1.4, supplement 1, CEC 17: message
/// descriptions), and those of the notifications (cec_port.h).

namespace cec_opcode {
constexpr std::uint8_t feature_abort = 0x00;
constexpr std::uint8_t image_view_on = 0x04;
constexpr std::uint8_t standby = 0x36;
constexpr std::uint8_t routing_change = 0x80;
constexpr std::uint8_t active_source = 0x82;
constexpr std::uint8_t request_active_source = 0x85;
constexpr std::uint8_t give_device_power_status = 0x8F;
constexpr std::uint8_t report_power_status = 0x90;
constexpr std::uint8_t inactive_source = 0x9D;
} // namespace cec_opcode

namespace cec_power_status {
constexpr std::uint8_t on = 0;
constexpr std::uint8_t standby = 1;
} // namespace cec_power_status

namespace cec_abort_reason {
constexpr std::uint8_t unrecognized_opcode = 0;
} // namespace cec_abort_reason

namespace cec_logical_address {
constexpr std::uint32_t tv = 0;
constexpr std::uint32_t unregistered = 15; ///< as an initiator
constexpr std::uint32_t broadcast = 15;    ///< as a destination
} // namespace cec_logical_address

namespace cec_reason {
constexpr std::uint32_t transmitted = 1;
constexpr std::uint32_t received = 2;
} // namespace cec_reason

constexpr unsigned cec_longest_message = 16; ///< bytes, header included
