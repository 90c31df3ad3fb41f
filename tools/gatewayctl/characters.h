#pragma once

#include <cstddef>
#include <string_view>

/// UTF-8, and which characters should not be shown to a reader as they are.

struct character {
    char32_t code = 0;
    std::size_t size = 0; ///< in bytes; 0: no valid UTF-8 begins here
};

/// The first character of a text that is not empty.
character first_character(std::string_view text);

/// Whether it controls a terminal, or hides or reorders the text around it.
bool is_deceptive(char32_t code);
