#pragma once

#include <cstddef>
#include <string_view>

/// UTF-8, and what of it a reader should not be shown as it is.

struct character {
    char32_t code = 0;
    std::size_t size = 0; ///< in bytes; 0: no valid UTF-8 begins here
};

/// The first character of a text that is not empty.
character first_character(std::string_view text);

/// Whether it steers a terminal, or hides or reorders what is around it.
bool is_deceptive(char32_t code);
