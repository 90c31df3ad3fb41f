#pragma once

#include "tools/gatewayctl/messages.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// What a message or record says, field by field, and what it does.

struct field {
    int offset;
    int size;
    std::string name;
    std::string value;
};

struct description {
    std::string title;
    std::vector<field> fields;
    std::vector<std::string> effects; ///< what the unit does, in order
    std::vector<std::string> faults;  ///< what is probably unintended
};

/// A message to a unit, read as the unit reads it. Any bytes of any length.
description describe_message(std::span<const std::uint8_t> bytes, channel via);

/// A record that a unit has sent to a gateway.
description describe_record(std::span<const std::uint8_t> bytes);

/// The description as lines for a terminal, with the bytes of each field.
std::string to_text(const description &described, std::span<const std::uint8_t> bytes);
