// The CEC port on a machine without CEC hardware: a bus that another process provides on a Unix
// socket, as lines of text. docs/cec-bus.md describes the lines.

#include "cec/cec_codes.h"
#include "cec/cec_port.h"
#include "cec/port/listener.h"
#include "cec/port/places.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr std::string_view socket_path = cec_bus_socket;
constexpr std::size_t longest_line = 256;
constexpr std::int32_t failure = -1;

int bus = -1; // stays open after the bus is gone: the reader thread may be using it
std::atomic<bool> is_connected; // the bus has said hello and is still there
std::uint32_t own_logical_address;
std::uint16_t own_physical_address;

// Lines from the bus.

enum class line_end { complete, too_long, bus_gone };

struct bus_line {
    std::array<char, longest_line> text;
    std::size_t size = 0;

    std::string_view view() const {
        return {text.data(), size};
    }
};

class line_reader {
  public:
    // The next line without its line feed. If a line is too long, its start is left in it.
    line_end next(bus_line &line) {
        line.size = 0;
        bool is_too_long = false;
        for (;;) {
            if (position_ == size_ && !fill()) {
                return line_end::bus_gone;
            }
            const char c = buffer_[position_++];
            if (c == '\n') {
                return is_too_long ? line_end::too_long : line_end::complete;
            }
            if (line.size == longest_line) {
                is_too_long = true;
            } else {
                line.text[line.size++] = c;
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

// At most count characters from there, fewer where the text ends.
std::string_view part_of(std::string_view text, std::size_t from, std::size_t count) {
    from = std::min(from, text.size());
    return {text.data() + from, std::min(count, text.size() - from)};
}

// The standard library's test would need its exceptions.
bool begins_with(std::string_view text, std::string_view start) {
    return part_of(text, 0, start.size()) == start;
}

// The number given by exactly so many uppercase hex digits.
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

std::optional<cec_notification> parse_frame(std::string_view frame, std::uint32_t reason) {
    std::array<std::uint8_t, cec_longest_message> message{};
    const std::size_t length = (frame.size() + 1) / 3;
    if (length == 0 || length > message.size() || frame.size() != 3 * length - 1) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = parse_hex(part_of(frame, 3 * i, 2), 2);
        if (!byte || (i > 0 && frame[3 * i - 1] != ':')) {
            return std::nullopt;
        }
        message[i] = static_cast<std::uint8_t>(*byte);
    }
    return pack_notification(reason, 0, message.data(), length);
}

std::optional<cec_notification> parse_raw(std::string_view text) {
    cec_notification words{};
    if (text.size() != 9 * words.size() - 1) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto word = parse_hex(part_of(text, 9 * i, 8), 8);
        if (!word || (i > 0 && text[9 * i - 1] != ' ')) {
            return std::nullopt;
        }
        words[i] = *word;
    }
    return words;
}

std::optional<cec_notification> parse_line(std::string_view line) {
    if (begins_with(line, "rx ")) {
        return parse_frame(part_of(line, 3, longest_line), cec_reason::received);
    }
    if (begins_with(line, "tx ")) {
        return parse_frame(part_of(line, 3, longest_line), cec_reason::transmitted);
    }
    if (begins_with(line, "raw ")) {
        return parse_raw(part_of(line, 4, longest_line));
    }
    return std::nullopt;
}

bool parse_hello(std::string_view line) {
    if (!begins_with(line, "hello ") || line.size() != 12 || line[7] != ' ') {
        return false;
    }
    const auto logical = parse_hex(part_of(line, 6, 1), 1);
    const auto physical = parse_hex(part_of(line, 8, 4), 4);
    if (!logical || !physical) {
        return false;
    }
    own_logical_address = *logical;
    own_physical_address = static_cast<std::uint16_t>(*physical);
    return true;
}

// Shows the start of the line, escaped: untrusted bytes never reach a terminal as they are.
void complain_about(std::string_view line) {
    constexpr std::size_t most_shown = 64;
    char shown[4 * most_shown + 1] = "";
    std::size_t size = 0;
    for (const char c : part_of(line, 0, most_shown)) {
        const bool is_plain = c >= ' ' && c <= '~' && c != '\\';
        size += static_cast<std::size_t>(std::snprintf(shown + size, sizeof shown - size,
                                                       is_plain ? "%c" : "\\x%02x",
                                                       static_cast<unsigned char>(c)));
    }
    std::fprintf(stderr, "CEC bus: skipped the line \"%s\"\n", shown);
}

void take_line(line_end end, std::string_view line) {
    const auto words = end == line_end::complete ? parse_line(line) : std::nullopt;
    if (words) {
        notify(*words);
    } else {
        complain_about(line);
    }
}

void read_bus() {
    wait_for_callback();
    bus_line line;
    for (line_end end = bus_lines.next(line); end != line_end::bus_gone;
         end = bus_lines.next(line)) {
        take_line(end, line.view());
    }
    is_connected = false;
    std::fputs("CEC bus: the connection was lost\n", stderr);
    cec_television_lost();
}

// Lines to the bus. A bus that does not read is treated as gone: nothing waits for it.

__attribute__((format(printf, 1, 2))) std::int32_t write_line(const char *format, ...) {
    char text[longest_line];
    std::va_list arguments;
    va_start(arguments, format);
    // The analyzer does not track va_start.
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (!is_connected || length < 0 || length >= static_cast<int>(sizeof text)) {
        return failure;
    }
    const ssize_t size =
        send(bus, text, static_cast<std::size_t>(length), MSG_NOSIGNAL | MSG_DONTWAIT);
    return size == length ? 0 : failure;
}

std::int32_t send_frame(std::uint32_t destination, const std::uint8_t *payload,
                        std::uint32_t length) {
    char operands[3 * cec_longest_message + 1] = "";
    if (length >= cec_longest_message) {
        return failure;
    }
    for (std::uint32_t i = 0; i < length; ++i) {
        std::snprintf(operands + std::size_t{3} * i, 4, ":%02X", payload[i]);
    }
    return write_line("send %02X%s\n", own_logical_address << 4 | (destination & 0x0F), operands);
}

} // namespace

extern "C" {

std::int32_t vchi_initialise(cec_instance *instance) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(socket_path.begin(), socket_path.end(), address.sun_path);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    fcntl(fd, F_SETFD, FD_CLOEXEC);
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
    bus_line line;
    if (bus_lines.next(line) != line_end::complete || !parse_hello(line.view())) {
        close(bus);
        bus = -1;
        return failure;
    }
    is_connected = true;
    return 0;
}

void vc_vchi_cec_init(cec_instance /*instance*/, cec_connection ** /*connections*/,
                      std::uint32_t /*count*/) {
    const int error = start_listening_thread(read_bus);
    if (error != 0) {
        is_connected = false;
        std::fprintf(stderr, "CEC bus: cannot start a thread: %s\n", std::strerror(error));
    }
}

std::int32_t vc_cec_deregister_all() {
    return write_line("deregister\n");
}

std::int32_t vc_cec_register_command(std::uint32_t opcode) {
    return write_line("register %02X\n", opcode);
}

std::int32_t vc_cec_get_logical_address(std::uint32_t *logical_address) {
    if (!is_connected) {
        return failure;
    }
    *logical_address = own_logical_address;
    return 0;
}

std::int32_t vc_cec_set_vendor_id(std::uint32_t vendor_id) {
    return write_line("vendor %06X\n", vendor_id);
}

std::int32_t vc_cec_set_osd_name(const char *name) {
    return write_line("osd %s\n", name);
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
    const std::uint8_t payload[] = {cec_opcode::active_source,
                                    static_cast<std::uint8_t>(physical_address >> 8),
                                    static_cast<std::uint8_t>(physical_address)};
    return send_frame(cec_logical_address::broadcast, payload, sizeof payload);
}
}
