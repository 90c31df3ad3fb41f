// The CEC port on a machine without CEC hardware: a bus that another process offers on a Unix
// socket, in lines of text. docs/cec-bus.md describes the lines.

#include "cec/cec_port.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace {

constexpr std::string_view socket_path = "/run/cec-bus.sock";
constexpr std::size_t longest_line = 256;
constexpr std::size_t longest_frame = 16; // bytes, header included
constexpr std::int32_t failure = -1;

constexpr std::uint32_t reason_transmitted = 1;
constexpr std::uint32_t reason_received = 2;

int bus = -1;                   // stays open when the bus has gone: the reader may be looking at it
std::atomic<bool> is_connected; // the bus has said hello and is still there
std::uint32_t own_logical_address;
std::uint16_t own_physical_address;

// Whom to notify. The reader starts before there is anybody and waits for it.
struct listener {
    cec_notification_fn callback;
    void *data;
};
listener registered;
std::atomic<const listener *> current_listener;

// Lines from the bus.

enum class line_end { complete, too_long, bus_gone };

class line_reader {
  public:
    // The next line without its line feed. Of a line that is too long the start is left in it.
    line_end next(std::string &line) {
        line.clear();
        bool is_too_long = false;
        for (;;) {
            if (position_ == size_ && !fill()) {
                return line_end::bus_gone;
            }
            const char c = buffer_[position_++];
            if (c == '\n') {
                return is_too_long ? line_end::too_long : line_end::complete;
            }
            if (line.size() == longest_line) {
                is_too_long = true;
            } else {
                line += c;
            }
        }
    }

  private:
    bool fill() {
        const ssize_t size = recv(bus, buffer_.data(), buffer_.size(), 0);
        position_ = 0;
        size_ = size > 0 ? static_cast<std::size_t>(size) : 0;
        return size > 0;
    }

    std::array<char, 4096> buffer_{};
    std::size_t position_ = 0;
    std::size_t size_ = 0;
};

line_reader bus_lines; // the start-up's first, then the reader thread's

// The number of exactly so many upper-case hex digits.
std::optional<std::uint32_t> parse_hex(std::string_view digits, std::size_t count) {
    if (digits.size() != count) {
        return std::nullopt;
    }
    std::uint32_t number = 0;
    for (const char c : digits) {
        const bool is_digit = c >= '0' && c <= '9';
        if (!is_digit && !(c >= 'A' && c <= 'F')) {
            return std::nullopt;
        }
        number = number * 16 + static_cast<std::uint32_t>(is_digit ? c - '0' : c - 'A' + 10);
    }
    return number;
}

// The five words of a notification.
using notification = std::array<std::uint32_t, 5>;

std::optional<notification> parse_frame(std::string_view frame, std::uint32_t reason) {
    const std::size_t length = (frame.size() + 1) / 3;
    if (length == 0 || length > longest_frame || frame.size() != 3 * length - 1) {
        return std::nullopt;
    }
    notification words = {reason | static_cast<std::uint32_t>(length) << 16};
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = parse_hex(frame.substr(3 * i, 2), 2);
        if (!byte || (i > 0 && frame[3 * i - 1] != ':')) {
            return std::nullopt;
        }
        words[1 + i / 4] |= *byte << (8 * (i % 4));
    }
    return words;
}

std::optional<notification> parse_raw(std::string_view text) {
    notification words{};
    if (text.size() != 9 * words.size() - 1) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto word = parse_hex(text.substr(9 * i, 8), 8);
        if (!word || (i > 0 && text[9 * i - 1] != ' ')) {
            return std::nullopt;
        }
        words[i] = *word;
    }
    return words;
}

std::optional<notification> parse_line(std::string_view line) {
    if (line.starts_with("rx ")) {
        return parse_frame(line.substr(3), reason_received);
    }
    if (line.starts_with("tx ")) {
        return parse_frame(line.substr(3), reason_transmitted);
    }
    if (line.starts_with("raw ")) {
        return parse_raw(line.substr(4));
    }
    return std::nullopt;
}

bool parse_hello(std::string_view line) {
    if (!line.starts_with("hello ") || line.size() != 12 || line[7] != ' ') {
        return false;
    }
    const auto logical = parse_hex(line.substr(6, 1), 1);
    const auto physical = parse_hex(line.substr(8), 4);
    if (!logical || !physical) {
        return false;
    }
    own_logical_address = *logical;
    own_physical_address = static_cast<std::uint16_t>(*physical);
    return true;
}

void notify(const notification &words) {
    const listener *to = current_listener;
    to->callback(to->data, words[0], words[1], words[2], words[3], words[4]);
}

void take_line(line_end end, const std::string &line) {
    const auto words = end == line_end::complete ? parse_line(line) : std::nullopt;
    if (words) {
        notify(*words);
    } else {
        std::fprintf(stderr, "CEC bus: skipped the line \"%.*s\"\n", 64, line.c_str());
    }
}

void read_bus() {
    current_listener.wait(nullptr);
    std::string line;
    for (line_end end = bus_lines.next(line); end != line_end::bus_gone;
         end = bus_lines.next(line)) {
        take_line(end, line);
    }
    is_connected = false;
}

// Lines to the bus. A bus that does not read is as good as gone: nothing waits for it.

std::int32_t write_line(const std::string &line) {
    if (!is_connected) {
        return failure;
    }
    const std::string text = line + "\n";
    const ssize_t size = send(bus, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return size == static_cast<ssize_t>(text.size()) ? 0 : failure;
}

template <typename... values> std::string formatted(const char *format, values... arguments) {
    char text[16];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

std::int32_t send_frame(std::uint32_t destination, const std::uint8_t *payload,
                        std::uint32_t length) {
    if (length >= longest_frame) {
        return failure;
    }
    std::string line = "send " + formatted("%02X", own_logical_address << 4 | (destination & 0x0F));
    for (std::uint32_t i = 0; i < length; ++i) {
        line += formatted(":%02X", payload[i]);
    }
    return write_line(line);
}

} // namespace

extern "C" {

std::int32_t vchi_initialise(cec_instance *instance) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket_path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    std::ignore = fcntl(fd, F_SETFD, FD_CLOEXEC);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        close(fd);
        return failure;
    }
    bus = fd;
    *instance = &bus;
    return 0;
}

std::int32_t vchi_connect(cec_connection ** /*connections*/, std::uint32_t /*count*/,
                          cec_instance /*instance*/) {
    std::string line;
    if (bus_lines.next(line) != line_end::complete || !parse_hello(line)) {
        close(bus);
        bus = -1;
        return failure;
    }
    is_connected = true;
    return 0;
}

void vc_vchi_cec_init(cec_instance /*instance*/, cec_connection ** /*connections*/,
                      std::uint32_t /*count*/) {
    std::thread(read_bus).detach();
}

void vc_cec_register_callback(cec_notification_fn callback, void *callback_data) {
    registered = {callback, callback_data};
    current_listener = &registered;
    current_listener.notify_one();
}

std::int32_t vc_cec_deregister_all() {
    return write_line("deregister");
}

std::int32_t vc_cec_register_command(std::uint32_t opcode) {
    return write_line("register " + formatted("%02X", opcode));
}

std::int32_t vc_cec_get_logical_address(std::uint32_t *logical_address) {
    if (!is_connected) {
        return failure;
    }
    *logical_address = own_logical_address;
    return 0;
}

std::int32_t vc_cec_set_vendor_id(std::uint32_t vendor_id) {
    return write_line("vendor " + formatted("%06X", vendor_id));
}

std::int32_t vc_cec_set_osd_name(const char *name) {
    return write_line(std::string("osd ") + name);
}

std::int32_t vc_cec_get_physical_address(std::uint16_t *physical_address) {
    if (!is_connected) {
        return failure;
    }
    *physical_address = own_physical_address;
    return 0;
}

std::int32_t vc_cec_send_message(std::uint32_t destination, const std::uint8_t *payload,
                                 std::uint32_t length, std::int32_t /*is_reply*/) {
    return send_frame(destination, payload, length);
}

std::int32_t vc_cec_send_ActiveSource(std::uint16_t physical_address, std::int32_t /*is_reply*/) {
    const std::uint8_t payload[] = {0x82, static_cast<std::uint8_t>(physical_address >> 8),
                                    static_cast<std::uint8_t>(physical_address)};
    return send_frame(0x0F, payload, sizeof payload);
}
}
