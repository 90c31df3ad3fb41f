#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

/// Builds a text in room that somebody else owns, from its start on. What has no room is left out, so
/// the room has to fit the longest text.
class line_builder {
  public:
    explicit line_builder(std::span<char> room) : room_(room) {}

    void append(std::string_view text);
    void append(char c) {
        if (size_ < room_.size()) {
            room_[size_++] = c;
        }
    }
    /// The first bytes of a short array, which is copied whole: that takes no call.
    template <std::size_t size> void append_start(const char (&array)[size], std::size_t wanted) {
        if (room_.size() - size_ < size) {
            append(std::string_view(array, wanted));
            return;
        }
        std::memcpy(room_.data() + size_, array, size);
        size_ += wanted;
    }

    void append_number(std::uint32_t number);

    /// A literal, whose length is known.
    template <std::size_t size> void append(const char (&literal)[size]) {
        append(std::string_view(literal, size - 1));
    }

    /// The last two digits, as in a date.
    void append_two_digits(std::uint32_t number);

    /// Takes back what follows the first `size` bytes.
    void shorten_to(std::size_t size);

    std::string_view view() const {
        return {room_.data(), size_};
    }

  private:
    std::span<char> room_;
    std::size_t size_ = 0;
};

/// Prints a line, which ends with its line feed: less work than a format, and the same single write.
void print_line(std::string_view line);
