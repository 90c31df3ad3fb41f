#include "tools/gatewayctl/watch_words.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace {

// "2026-11-22T04:20:27.123Z"
std::string utc_text(wall_time time) {
    const auto since_epoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since_epoch);
    const std::time_t whole = seconds.count();
    std::tm utc{};
    char text[32];
    gmtime_r(&whole, &utc);
    std::strftime(text, sizeof text, "%FT%T", &utc);
    const std::string milliseconds = std::to_string(1000 + (since_epoch - seconds).count());
    return std::string(text) + "." + milliseconds.substr(1) + "Z";
}

std::string version_text(const fleet_unit &unit) {
    return unit.said.version == 0 ? "" : ", version " + std::to_string(unit.said.version);
}

std::string board_text(const fleet_unit &unit) {
    return " (" + unit.said.hardware_address + ")";
}

std::string last_answer_text(const fleet_unit &unit) {
    return unit.last_answer ? "; its last answer came at " + clock_text(*unit.last_answer, "%T")
                            : "; it has not answered since the start";
}

const char *kind_name(change_kind kind) {
    switch (kind) {
    case change_kind::appeared:
        return "appeared";
    case change_kind::returned:
        return "returned";
    case change_kind::lost:
        return "lost";
    case change_kind::other_board:
        return "other board";
    case change_kind::other_version:
        return "other version";
    case change_kind::other_requests:
        return "other requests";
    }
    return "";
}

std::string json_or_null(const std::string &text) {
    return text.empty() ? "null" : json_quoted(text);
}

std::string requests_json(const fleet_unit &unit) {
    std::string text;
    for (const std::string &request : requests_of(unit.said)) {
        text += (text.empty() ? "" : ", ") + json_quoted(request);
    }
    return "[" + text + "]";
}

} // namespace

std::string clock_text(wall_time time, const char *format) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    char text[32];
    localtime_r(&seconds, &local);
    return {text, std::strftime(text, sizeof text, format, &local)};
}

std::chrono::seconds seconds_between(wall_time from, wall_time to) {
    return std::max(std::chrono::floor<std::chrono::seconds>(to - from), std::chrono::seconds(0));
}

const char *state_name(const fleet_unit &unit) {
    switch (unit.state) {
    case presence::awaited:
        return "awaited";
    case presence::present:
        return unit.is_expected ? "present" : "unknown";
    case presence::missing:
        return "missing";
    }
    return "";
}

std::string span_text(std::chrono::seconds span) {
    struct scale {
        long seconds;
        const char *name;
    };
    constexpr std::array<scale, 4> scales{{{86400, " d"}, {3600, " h"}, {60, " min"}, {1, " s"}}};
    const long total = span.count();
    for (std::size_t i = 0; i + 1 < scales.size(); ++i) {
        if (total < scales[i].seconds) {
            continue;
        }
        const long rest = total % scales[i].seconds / scales[i + 1].seconds;
        const bool has_rest = rest > 0 && i + 2 < scales.size(); // no seconds beside minutes
        return std::to_string(total / scales[i].seconds) + scales[i].name +
               (has_rest ? " " + std::to_string(rest) + scales[i + 1].name : "");
    }
    return std::to_string(total) + " s";
}

std::string change_text(const fleet_change &change, bool has_names) {
    const fleet_unit &unit = change.unit;
    switch (change.kind) {
    case change_kind::appeared:
        return std::string("is there") + version_text(unit) + board_text(unit) +
               (has_names && !unit.is_expected ? ", but not expected" : "");
    case change_kind::returned:
        return "is back after " + span_text(seconds_between(change.before, change.time)) +
               version_text(unit) + board_text(unit);
    case change_kind::lost:
        return "is missing" + last_answer_text(unit);
    case change_kind::other_board:
        return "is another board now" + board_text(unit);
    case change_kind::other_version:
        return "has another version now" + version_text(unit);
    case change_kind::other_requests:
        return requests_text(unit).empty() ? "no longer asks for anything"
                                           : "asks for: " + requests_text(unit);
    }
    return "";
}

std::string change_json(const fleet_change &change) {
    const fleet_unit &unit = change.unit;
    const std::string answer = unit.last_answer ? utc_text(*unit.last_answer) : "";
    return R"({"time": ")" + utc_text(change.time) + R"(", "change": ")" + kind_name(change.kind) +
           R"(", "unit": )" + json_quoted(name_of(unit)) + R"(, "address": ")" +
           host_text(unit.identity.address) + R"(", "group": )" +
           json_or_null(unit.identity.group) + R"(, "state": ")" + state_name(unit) +
           R"(", "since": ")" + utc_text(unit.since) + R"(", "last_answer": )" +
           json_or_null(answer) + R"(, "hardware_address": )" +
           json_or_null(unit.said.hardware_address) + R"(, "version": )" +
           (unit.said.version == 0 ? "null" : std::to_string(unit.said.version)) +
           R"(, "asks_for": )" + requests_json(unit) + "}";
}
