#include "tools/gatewayctl/text.h"

namespace {

constexpr char digits[] = "0123456789abcdef";

std::string joined_hex(std::span<const std::uint8_t> bytes, char separator) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) {
            text += separator;
        }
        text += {digits[byte >> 4], digits[byte & 0xf]};
    }
    return text;
}

std::string escaped(char c) {
    switch (c) {
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '"':
        return "\\\"";
    case '\\':
        return "\\\\";
    default:
        const auto byte = static_cast<std::uint8_t>(c);
        return {'\\', 'x', digits[byte >> 4], digits[byte & 0xf]};
    }
}

bool is_plain(char c) {
    const auto byte = static_cast<std::uint8_t>(c);
    return byte >= 0x20 && byte != 0x7f && c != '"' && c != '\\';
}

} // namespace

std::string to_hex(std::span<const std::uint8_t> bytes) {
    return joined_hex(bytes, ' ');
}

std::string hardware_address_text(std::span<const std::uint8_t> bytes) {
    return joined_hex(bytes, ':');
}

std::string bytes_text(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        result += is_plain(c) ? std::string(1, c) : escaped(c);
    }
    return result + "\"";
}
