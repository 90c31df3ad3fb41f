#include "tools/gatewayctl/characters.h"

#include <algorithm>
#include <cstdint>

namespace {

struct range {
    char32_t first;
    char32_t last;
};

// Control characters, line separators, and everything invisible that has an effect. The variation
// selectors used with emoji (U+FE00 to U+FE0F) are allowed.
constexpr range deceptive[] = {
    {0x0000, 0x001f},   {0x007f, 0x009f},   {0x00ad, 0x00ad},   {0x034f, 0x034f},
    {0x0600, 0x0605},   {0x061c, 0x061c},   {0x06dd, 0x06dd},   {0x070f, 0x070f},
    {0x0890, 0x0891},   {0x08e2, 0x08e2},   {0x115f, 0x1160},   {0x17b4, 0x17b5},
    {0x180b, 0x180f},   {0x200b, 0x200f},   {0x2028, 0x202e},   {0x2060, 0x206f},
    {0x3164, 0x3164},   {0xfeff, 0xfeff},   {0xffa0, 0xffa0},   {0xfff0, 0xfffb},
    {0x110bd, 0x110bd}, {0x110cd, 0x110cd}, {0x13430, 0x1345f}, {0x1bca0, 0x1bca3},
    {0x1d173, 0x1d17a}, {0xe0000, 0xe0fff},
};

constexpr char32_t last_code = 0x10ffff;

bool is_surrogate(char32_t code) {
    return code >= 0xd800 && code <= 0xdfff;
}

// Determined by the first byte; `byte` keeps only its code point bits.
std::size_t take_size(std::uint8_t &byte) {
    if (byte < 0x80) {
        return 1;
    }
    for (std::size_t size = 2; size <= 4; ++size) {
        const unsigned mark = 0xf00U >> size & 0xffU; // as many one bits as there are bytes
        const unsigned mask = mark | 0x80U >> size;   // and the zero bit after them
        if ((byte & mask) == mark) {
            byte = static_cast<std::uint8_t>(byte & ~mask);
            return size;
        }
    }
    return 0;
}

} // namespace

character first_character(std::string_view text) {
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000}; // by size: rejects overlong forms
    auto byte = static_cast<std::uint8_t>(text.front());
    const std::size_t size = take_size(byte);
    if (size == 0 || text.size() < size) {
        return {};
    }
    char32_t code = byte;
    for (const char c : text.substr(1, size - 1)) {
        const auto next = static_cast<std::uint8_t>(c);
        if ((next & 0xc0) != 0x80) {
            return {};
        }
        code = code << 6 | (next & 0x3fU);
    }
    if (code < smallest[size] || code > last_code || is_surrogate(code)) {
        return {};
    }
    return {code, size};
}

bool is_deceptive(char32_t code) {
    return std::ranges::any_of(
        deceptive, [code](const range &all) { return code >= all.first && code <= all.last; });
}
