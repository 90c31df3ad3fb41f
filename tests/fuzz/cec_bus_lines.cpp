// The lines of a simulated CEC bus: any bytes in pieces of any size. What is notified is compared with
// another reading of the lines.

#include "cec/cec_port.h"

#include "fuzz_target.h"
#include "printed_text.h"
#include "wrapped_names.h"

#include <array>
#include <optional>
#include <pthread.h>
#include <sys/socket.h>
#include <vector>

namespace {

using words = std::array<std::uint32_t, 5>;

constexpr int descriptor = 77;
constexpr std::size_t longest_line = 256;

std::string incoming;
std::size_t received;
std::size_t piece; // how much one receive returns
bool is_gone;      // the provider knows that there is no more
std::vector<words> notified;
int open_descriptors;
int lost_count;

void take_notification(void * /*data*/, std::uint32_t param0, std::uint32_t param1,
                       std::uint32_t param2, std::uint32_t param3, std::uint32_t param4) {
    notified.push_back({param0, param1, param2, param3, param4});
}

bool is_hex(const std::string &text) {
    return !text.empty() && text.find_first_not_of("0123456789ABCDEF") == std::string::npos;
}

// The parts between separators; none if one of them has not that many digits.
std::optional<std::vector<std::uint32_t>> numbers(const std::string &text, char separator,
                                                  std::size_t digits) {
    std::vector<std::uint32_t> found;
    for (std::size_t start = 0; start <= text.size();) {
        const auto end = std::min(text.find(separator, start), text.size());
        const std::string part = text.substr(start, end - start);
        if (part.size() != digits || !is_hex(part)) {
            return std::nullopt;
        }
        found.push_back(static_cast<std::uint32_t>(std::stoul(part, nullptr, 16)));
        start = end + 1;
    }
    return found;
}

std::optional<words> expected_words(const std::string &line) {
    if (line.starts_with("raw ")) {
        const auto found = numbers(line.substr(4), ' ', 8);
        if (!found || found->size() != 5) {
            return std::nullopt;
        }
        return words{(*found)[0], (*found)[1], (*found)[2], (*found)[3], (*found)[4]};
    }
    if (!line.starts_with("rx ") && !line.starts_with("tx ")) {
        return std::nullopt;
    }
    const auto found = numbers(line.substr(3), ':', 2);
    if (!found || found->size() > 16) {
        return std::nullopt;
    }
    const auto length = static_cast<std::uint32_t>(found->size());
    words result = {(line[0] == 'r' ? 2U : 1U) | length << 16};
    for (std::size_t i = 0; i < found->size(); ++i) {
        result[1 + i / 4] |= (*found)[i] << (8 * (i % 4));
    }
    return result;
}

// Only whole lines count.
std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

bool is_hello(const std::string &line) {
    return line.size() == 12 && line.starts_with("hello ") && line[7] == ' ' &&
           is_hex(line.substr(6, 1)) && is_hex(line.substr(8));
}

void expect_notifications(const std::vector<std::string> &lines, const std::string &errors) {
    std::vector<words> expected;
    std::size_t skipped = 0;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const auto found =
            lines[i].size() <= longest_line ? expected_words(lines[i]) : std::nullopt;
        if (found) {
            expected.push_back(*found);
        }
        skipped += found ? 0 : 1;
    }
    REQUIRE(notified == expected);
    const std::vector<std::string> said = lines_of(errors);
    REQUIRE(said.size() == skipped + 1);
    REQUIRE_SAME(said.back(), "CEC bus: the connection was lost");
    REQUIRE(std::all_of(errors.begin(), errors.end(),
                        [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }));
}

// The start-up, at whose end the bus is read until it is gone.
std::int32_t start_up() {
    cec_instance instance = nullptr;
    cec_connection *connection = nullptr;
    vc_cec_register_callback(take_notification, nullptr);
    REQUIRE(vchi_initialise(&instance) == 0);
    const std::int32_t result = vchi_connect(nullptr, 0, instance);
    if (result == 0) {
        vc_vchi_cec_init(instance, &connection, 1);
        return result;
    }
    while (!is_gone) {
        vchi_connect(nullptr, 0, instance); // nothing of it is left for the next input
    }
    return result;
}

} // namespace

void cec_television_lost() {
    ++lost_count;
}

extern "C" {
int __wrap_socket(int /*family*/, int /*type*/, int /*protocol*/) {
    ++open_descriptors;
    return descriptor;
}

int __wrap_connect(int /*fd*/, const sockaddr * /*address*/, socklen_t /*size*/) {
    return 0;
}

int __real_close(int fd);
int __wrap_close(int fd) {
    if (fd != descriptor && fd != -1) {
        return __real_close(fd);
    }
    open_descriptors -= fd == descriptor ? 1 : 0;
    return 0;
}

int __wrap_fcntl(int /*fd*/, int /*command*/, ...) {
    return 0;
}

ssize_t __wrap_recv(int /*fd*/, void *buffer, std::size_t size, int /*flags*/) {
    const std::size_t count =
        incoming.copy(static_cast<char *>(buffer), std::min(size, piece), received);
    received += count;
    is_gone = count == 0;
    return static_cast<ssize_t>(count);
}

ssize_t __wrap_send(int /*fd*/, const void * /*data*/, std::size_t size, int /*flags*/) {
    return static_cast<ssize_t>(size);
}

// The provider's thread runs to its end at once.
int __wrap_pthread_create(pthread_t * /*thread*/, const pthread_attr_t * /*attributes*/,
                          void *(*run)(void *), void *argument) {
    run(argument);
    return 0;
}

int __wrap_pthread_detach(pthread_t /*thread*/) {
    return 0;
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz_input input(data, size);
    const int kind = input.byte();
    piece = static_cast<std::size_t>(1 + kind / 2);
    incoming = (kind % 2 == 0 ? "hello 4 1000\n" : "") + input.all();
    received = 0;
    is_gone = false;
    notified.clear();
    open_descriptors = lost_count = 0;

    printed_text errors(stderr);
    const std::int32_t result = start_up();
    const std::string said = errors.take();
    const std::vector<std::string> lines = lines_of(incoming);
    const bool is_started = !lines.empty() && is_hello(lines[0]);
    REQUIRE((result == 0) == is_started);
    REQUIRE(open_descriptors == (is_started ? 1 : 0));
    REQUIRE(lost_count == (is_started ? 1 : 0));
    if (is_started) {
        expect_notifications(lines, said);
    } else {
        REQUIRE_SAME(said, "");
    }
    return 0;
}
