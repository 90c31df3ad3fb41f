#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

/// Bytes and texts in human-readable form.

/// "33 01 00".
std::string to_hex(std::span<const std::uint8_t> bytes);

/// "02:00:0a:57:21:32".
std::string hardware_address_text(std::span<const std::uint8_t> bytes);

/// "1 byte", "7 bytes".
std::string bytes_text(std::size_t count);

/// In quotation marks. Anything that controls a terminal or misleads its reader is escaped, and so
/// is invalid UTF-8; all other characters are kept.
std::string quoted(std::string_view text);

/// The same without quotation marks, for a text that may contain its own: those and backslashes are
/// kept.
std::string printable(std::string_view text);

/// How many columns of a terminal it takes, where each character takes one.
int width_of(std::string_view text);

/// With blanks behind it, up to the width.
std::string padded(const std::string &text, int width);

/// As a string of JSON, with its quotation marks. What quoted() escapes is escaped here, too; a byte
/// that is no UTF-8 becomes U+FFFD.
std::string json_quoted(std::string_view text);
