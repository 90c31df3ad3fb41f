#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// The records that units send to a gateway's port 5000.

enum class record_type { rollcall_reply, set_date_request, settings_request };

struct unit_record {
    record_type type{};
    std::string hardware_address; ///< "02:00:0a:57:21:32"
    int version = 0;              ///< of a roll-call reply
};

/// None if the bytes are not a valid record.
std::optional<unit_record> parse_record(std::span<const std::uint8_t> bytes);
