#pragma once

#include "hdtv/protocol.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <netinet/in.h>
#include <sys/socket.h>

/// Who sent a message, and the length of that address as the system gave it.
struct message_sender {
    sockaddr_in address{};
    socklen_t size = sizeof(sockaddr_in);
};

/// A received message: a buffer of 4096 bytes, zero beyond what was received, and a terminator
/// after them that no receive can overwrite. Every position outside reads as zero or as the empty
/// text: whatever the bytes say, nothing else is ever accessed.
class gateway_message {
  public:
    /// The receive buffer: room for protocol::message_capacity bytes.
    unsigned char *receive_area() {
        return bytes_.data();
    }

    /// The count that the receive returned.
    void set_size(int size) {
        size_ = std::clamp(size, 0, protocol::message_capacity);
    }

    int size() const {
        return size_;
    }

    std::uint8_t byte(int position) const {
        return is_inside(position) ? bytes_[static_cast<std::size_t>(position)] : std::uint8_t{0};
    }

    /// The big-endian 16-bit number at position.
    int number(int position) const {
        return byte(position) * 256 + byte(position + 1);
    }

    /// The text from position to the first zero byte.
    const char *text(int position) const {
        return reinterpret_cast<const char *>(bytes_.data()) + start_of(position);
    }

  private:
    static bool is_inside(int position) {
        return position >= 0 && position < protocol::message_capacity;
    }

    // Any position outside maps to the terminator.
    static int start_of(int position) {
        return is_inside(position) ? position : protocol::message_capacity;
    }

    std::array<unsigned char, protocol::message_capacity + 1> bytes_{};
    int size_ = 0;
};
