#include "hdtv/line.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

void line_builder::append(std::string_view text) {
    const std::size_t size = std::min(text.size(), room_.size() - size_);
    std::memcpy(room_.data() + size_, text.data(), size);
    size_ += size;
}

void line_builder::append(char c) {
    if (size_ < room_.size()) {
        room_[size_++] = c;
    }
}

void line_builder::append_number(unsigned long number) {
    char digits[20]; // of 64 bits
    std::size_t first = sizeof digits;
    do {
        digits[--first] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    append(std::string_view(digits + first, sizeof digits - first));
}

void line_builder::append_two_digits(int number) {
    append(static_cast<char>('0' + number / 10 % 10));
    append(static_cast<char>('0' + number % 10));
}

void line_builder::shorten_to(std::size_t size) {
    size_ = std::min(size, size_);
}

void print_line(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
}
