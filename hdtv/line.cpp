#include "hdtv/line.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>

void line_builder::append(std::string_view text) {
    const std::size_t size = std::min(text.size(), room_.size() - size_);
    std::copy_n(text.data(), size, room_.data() + size_);
    size_ += size;
}

// Without divisions, which the board's processor has to do in software.
void line_builder::append_number(std::uint32_t number) {
    char digits[10];
    std::size_t size = 0;
    for (std::uint32_t power :
         {1000000000U, 100000000U, 10000000U, 1000000U, 100000U, 10000U, 1000U, 100U, 10U, 1U}) {
        char digit = '0';
        for (; number >= power; number -= power) {
            ++digit;
        }
        if (size > 0 || digit > '0' || power == 1) {
            digits[size++] = digit;
        }
    }
    append(std::string_view(digits, size));
}

void line_builder::append_two_digits(std::uint32_t number) {
    while (number >= 100) {
        number -= 100;
    }
    if (number < 10) {
        append('0');
    }
    append_number(number);
}

void line_builder::shorten_to(std::size_t size) {
    size_ = std::min(size, size_);
}

void print_line(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
}
