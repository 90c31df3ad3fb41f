// The answers of the tools that tell the display's mode, the interfaces and the USB devices.

#include "bstrlib/bstr_owner.h"
#include "hdtv/health.h"

#include "fuzz_service.h"
#include "fuzz_target.h"

#include <optional>
#include <vector>

namespace {

constexpr std::size_t longest_part = 4095;

// The lines as they are read: in parts, each up to its zero byte.
std::vector<std::string> parts_of(const std::string &answer) {
    std::vector<std::string> parts;
    for (std::size_t start = 0; start < answer.size();) {
        const auto feed = answer.find('\n', start);
        const auto end =
            std::min(feed == std::string::npos ? answer.size() : feed + 1, start + longest_part);
        parts.emplace_back(answer.substr(start, end - start).c_str());
        start = end;
    }
    return parts;
}

std::optional<std::string> mode_in(const std::string &line) {
    const auto marker = line.find("state 0x");
    const auto separator = marker == std::string::npos ? marker : line.find(", ", marker);
    const auto blank = separator == std::string::npos ? separator : line.find(' ', separator + 2);
    if (blank == std::string::npos || blank - separator - 2 > 10 || blank == separator + 2) {
        return std::nullopt;
    }
    return line.substr(separator + 2, blank - separator - 2);
}

std::optional<std::string> expected_mode(const std::string &answer) {
    std::optional<std::string> mode;
    for (const std::string &line : parts_of(answer)) {
        if (auto found = mode_in(line)) {
            mode = std::move(found);
        }
    }
    return mode;
}

int expected_count(const std::string &answer, const char *text) {
    int count = 0;
    for (const std::string &line : parts_of(answer)) {
        count += line.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

// Sets up what the command prints; some cannot be started.
std::optional<std::string> take_answer(fuzz_input &input, const char *command, bool is_last) {
    if (input.byte() % 8 == 7) {
        return std::nullopt;
    }
    const std::string answer = is_last ? input.all() : input.short_text();
    fake::state.printed[command] = answer;
    return answer;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz_input input(data, size);
    const fuzz_service service;
    const auto interfaces = take_answer(input, "/sbin/ifconfig", false);
    const auto devices = take_answer(input, "/usr/bin/lsusb", false);
    const auto modes = take_answer(input, "/usr/bin/tvservice -s", true);

    const auto expected = modes ? expected_mode(*modes) : std::nullopt;
    const bstr_owner mode(get_fb_resolution());
    REQUIRE((mode != nullptr) == expected.has_value());
    if (mode) {
        REQUIRE_SAME(std::string(bstr_text(mode.get())), *expected);
    }
    REQUIRE(eth0_is_present() == (interfaces ? expected_count(*interfaces, "eth0") : -1));
    const int count = devices ? expected_count(*devices, "0424:") : -1;
    REQUIRE(nic_is_present() == static_cast<unsigned>(count));

    fb_time_fn(-1, 0, nullptr);
    const bool is_low = expected == "640x480" || expected == "720x480";
    const bool is_cut_off = interfaces && expected_count(*interfaces, "eth0") == 0 && count != 0;
    REQUIRE(fake::state.calls_of("fork").size() ==
            static_cast<std::size_t>((is_low ? 2 : 0) + (is_cut_off ? 1 : 0)));
    const auto opened = fake::state.calls_of("popen").size();
    const auto failed = static_cast<std::size_t>((modes ? 0 : 2) + (interfaces ? 0 : 2)) +
                        (devices ? 0 : fake::state.calls_of("popen /usr/bin/lsusb").size());
    REQUIRE(fake::state.calls_of("pclose").size() == opened - failed);
    return 0;
}
