#include "tools/gatewayctl/text.h"

#include "tools/gatewayctl/characters.h"

#include <algorithm>

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

std::string hex_digits(char32_t code, int count) {
    std::string text;
    while (count-- > 0) {
        text += digits[code >> 4 * count & 0xf];
    }
    return text;
}

std::string escaped(char32_t code) {
    switch (code) {
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    default:
        return code < 0x80      ? "\\x" + hex_digits(code, 2)
               : code < 0x10000 ? "\\u" + hex_digits(code, 4)
                                : "\\U" + hex_digits(code, 8);
    }
}

std::string escaped_byte(char c) {
    return "\\x" + hex_digits(static_cast<std::uint8_t>(c), 2);
}

// Puts a backslash before each of the characters in `marked`.
std::string harmless(std::string_view text, std::string_view marked) {
    std::string result;
    while (!text.empty()) {
        const character next = first_character(text);
        const std::size_t size = std::max<std::size_t>(next.size, 1);
        if (next.size == 0) {
            result += escaped_byte(text.front());
        } else if (is_deceptive(next.code)) {
            result += escaped(next.code);
        } else {
            result += marked.find(text.front()) == std::string_view::npos ? "" : "\\";
            result += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    return result;
}

std::string json_escaped(char32_t code) {
    constexpr char32_t first_beyond = 0x10000; // of those that take two escapes
    if (code < first_beyond) {
        return "\\u" + hex_digits(code, 4);
    }
    const char32_t rest = code - first_beyond;
    return "\\u" + hex_digits(0xd800 + (rest >> 10), 4) + "\\u" +
           hex_digits(0xdc00 + (rest & 0x3ff), 4);
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
    return '"' + harmless(text, "\"\\") + '"';
}

std::string printable(std::string_view text) {
    return harmless(text, "");
}

int width_of(std::string_view text) {
    return static_cast<int>(std::ranges::count_if(text, [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string padded(const std::string &text, int width) {
    const int missing = std::max(0, width - width_of(text));
    return text + std::string(static_cast<std::size_t>(missing), ' ');
}

std::string json_quoted(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        const character next = first_character(text);
        const std::size_t length = std::max<std::size_t>(next.size, 1);
        if (next.size == 0 || is_deceptive(next.code)) {
            result += json_escaped(next.size == 0 ? U'\ufffd' : next.code);
        } else {
            result += text.front() == '"' || text.front() == '\\' ? "\\" : "";
            result += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return result + '"';
}
