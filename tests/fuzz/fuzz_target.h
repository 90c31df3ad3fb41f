#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <unistd.h>

/// What the fuzz targets share: how an input is read, and what happens when something does not hold.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// The input as a list of decisions. Once it is used up, every decision is 0 or the empty text, so
/// that each input means something.
class fuzz_input {
  public:
    fuzz_input(const std::uint8_t *data, std::size_t size)
        : rest_(reinterpret_cast<const char *>(data), size) {}

    bool is_used_up() const {
        return rest_.empty();
    }

    std::uint8_t byte() {
        if (rest_.empty()) {
            return 0;
        }
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return static_cast<std::uint8_t>(c);
    }

    int number16() {
        const int high = byte();
        return high * 256 + byte();
    }

    std::uint32_t number32() {
        const auto high = static_cast<std::uint32_t>(number16());
        return high << 16 | static_cast<std::uint32_t>(number16());
    }

    std::string text(std::size_t size) {
        const std::string taken(rest_.substr(0, size));
        rest_.remove_prefix(taken.size());
        return taken;
    }

    /// With its size before it.
    std::string short_text() {
        return text(byte());
    }
    std::string long_text() {
        return text(static_cast<std::size_t>(number16()));
    }

    std::string all() {
        return text(rest_.size());
    }

  private:
    std::string_view rest_;
};

// The targets replace stderr, but not its descriptor.
[[noreturn]] inline void report_violation(const char *file, int line, const char *what) {
    dprintf(STDERR_FILENO, "%s:%d: does not hold: %s\n", file, line, what);
    std::abort();
}

[[noreturn]] inline void report_difference(const char *file, int line, const std::string &is,
                                           const std::string &expected) {
    dprintf(STDERR_FILENO, "%s:%d: is\n  \"%s\"\ninstead of\n  \"%s\"\n", file, line, is.c_str(),
            expected.c_str());
    std::abort();
}

/// Ends the program, which makes the input a finding, unless the condition holds.
#define REQUIRE(condition)                                                                         \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            report_violation(__FILE__, __LINE__, #condition);                                      \
        }                                                                                          \
    } while (false)

/// The same for two texts, which are shown.
#define REQUIRE_SAME(is, expected)                                                                 \
    do {                                                                                           \
        const std::string is_now(is);                                                              \
        const std::string should_be(expected);                                                     \
        if (is_now != should_be) {                                                                 \
            report_difference(__FILE__, __LINE__, is_now, should_be);                              \
        }                                                                                          \
    } while (false)
