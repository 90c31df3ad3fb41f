#include "tools/gatewayctl/watch_table.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/characters.h"
#include "tools/gatewayctl/text.h"
#include "tools/gatewayctl/watch_words.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t columns = 9;
using table_row = std::array<std::string, columns>;

const table_row headings{"UNIT", "GROUP",   "ADDRESS",          "STATE",   "SINCE",
                         "FOR",  "VERSION", "HARDWARE ADDRESS", "ASKS FOR"};

std::string shortened(std::string_view text, std::size_t most) {
    std::string_view rest = text;
    for (; most > 0 && !rest.empty(); --most) {
        rest.remove_prefix(std::max<std::size_t>(first_character(rest).size, 1));
    }
    return std::string(text.substr(0, text.size() - rest.size()));
}

std::string or_dash(const std::string &text) {
    return text.empty() ? "-" : text;
}

table_row row_of(const fleet_unit &unit, wall_time now) {
    const std::string version = unit.said.version == 0 ? "" : std::to_string(unit.said.version);
    return {printable(name_of(unit)),
            or_dash(printable(unit.identity.group)),
            host_text(unit.identity.address),
            state_name(unit),
            clock_text(unit.since, "%m-%d %T"),
            span_text(seconds_between(unit.since, now)),
            or_dash(version),
            or_dash(unit.said.hardware_address),
            or_dash(requests_text(unit))};
}

std::string joined(const table_row &row, const std::array<int, columns> &widths) {
    constexpr int gap = 2;
    std::string line;
    for (std::size_t i = 0; i < columns; ++i) {
        line += i + 1 == columns ? row[i] : padded(row[i], widths[i] + gap);
    }
    return line;
}

std::vector<std::string> lines_of(const std::vector<table_row> &rows) {
    std::array<int, columns> widths{};
    for (const table_row &row : rows) {
        for (std::size_t i = 0; i < columns; ++i) {
            widths[i] = std::max(widths[i], width_of(row[i]));
        }
    }
    std::vector<std::string> lines;
    std::ranges::transform(rows, std::back_inserter(lines),
                           [&widths](const table_row &row) { return joined(row, widths); });
    return lines;
}

int rank(const fleet_unit &unit) {
    switch (unit.state) {
    case presence::missing:
        return 0;
    case presence::awaited:
        return 1;
    case presence::present:
        break;
    }
    return unit.is_expected ? 3 : 2;
}

std::string sum_text(const fleet &units, const table_frame &frame) {
    const fleet_tally tally = tally_of(units);
    std::string text = std::to_string(tally.present) + " of " + std::to_string(tally.expected) +
                       (tally.expected == 1 ? " unit" : " units") + " present";
    text += tally.missing > 0 ? ", " + std::to_string(tally.missing) + " missing" : "";
    text += tally.awaited > 0 ? ", " + std::to_string(tally.awaited) + " awaited" : "";
    text += tally.unknown > 0 ? ", " + std::to_string(tally.unknown) + " unknown" : "";
    return text + "; " + clock_text(frame.now, "%T") + ", next roll call in " +
           span_text(frame.until_call);
}

} // namespace

std::string table_text(const fleet &units, const table_frame &frame) {
    std::vector<std::string> lines{sum_text(units, frame)};
    if (!frame.notice.empty()) {
        lines.push_back(printable(frame.notice));
    }
    std::vector<const fleet_unit *> all = units.units();
    std::ranges::stable_sort(all, {}, [](const fleet_unit *unit) { return rank(*unit); });
    std::vector<table_row> rows{headings};
    std::ranges::transform(all, std::back_inserter(rows),
                           [&frame](const fleet_unit *unit) { return row_of(*unit, frame.now); });
    // All of them, so that the columns stay where they are.
    std::ranges::move(lines_of(rows), std::back_inserter(lines));
    if (lines.size() > frame.rows) {
        const std::size_t kept = std::max<std::size_t>(frame.rows, 1) - 1;
        const std::size_t hidden = std::min(lines.size() - kept, all.size());
        lines.resize(kept);
        lines.push_back("and " + std::to_string(hidden) + " more");
    }
    std::string text;
    for (const std::string &line : lines) {
        text += shortened(line, frame.columns) + "\n";
    }
    return text;
}
