#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

/// Bytes and texts for a person to read.

/// "33 01 00".
std::string to_hex(std::span<const std::uint8_t> bytes);

/// "02:00:0a:57:21:32".
std::string hardware_address_text(std::span<const std::uint8_t> bytes);

/// "1 byte", "7 bytes".
std::string bytes_text(std::size_t count);

/// In quotation marks. What steers a terminal or deceives its reader is escaped, and so is what is no
/// UTF-8; all other characters stay.
std::string quoted(std::string_view text);

/// The same without quotation marks, for a text that may hold its own: they and backslashes stay.
std::string printable(std::string_view text);
