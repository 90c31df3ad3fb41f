#include "tools/gatewayctl/roll_print.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

std::string joined(const std::vector<std::string> &words, const char *quote) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : ", ") + (quote + word) + quote;
    }
    return text;
}

std::string or_dash(const std::string &text) {
    return text.empty() ? "-" : text;
}

// Only a reply to the roll call tells it.
std::string version_text(const roll_answer &answer, const char *unknown) {
    return answer.version == 0 ? unknown : std::to_string(answer.version);
}

std::string version_of(const roll_entry &entry) {
    return entry.answer ? version_text(*entry.answer, "-") : "-";
}

std::string requests_text(const roll_entry &entry) {
    return or_dash(entry.answer ? joined(requests_of(*entry.answer), "") : "");
}

std::string address_of(const roll_entry &entry) {
    return entry.answer ? host_text(entry.answer->address) : entry.expected->unit.address;
}

std::string hardware_address_of(const roll_entry &entry) {
    return or_dash(entry.answer ? entry.answer->hardware_address
                                : entry.expected->unit.hardware_address);
}

// What is not as it was.
std::string note_of(const roll_entry &entry) {
    switch (entry.state) {
    case roll_state::moved:
        return "was " + entry.expected->unit.address;
    case roll_state::replaced:
        return "was " + entry.expected->unit.hardware_address;
    default:
        return "";
    }
}

using row = std::vector<std::string>;

void print_rows(const std::vector<row> &rows) {
    std::vector<int> widths(rows.front().size());
    for (const row &cells : rows) {
        for (std::size_t i = 0; i < cells.size(); ++i) {
            widths[i] = std::max(widths[i], width_of(cells[i]));
        }
    }
    for (const row &cells : rows) {
        std::string line;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            line += padded(cells[i], widths[i]) + "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        std::printf("%s\n", line.c_str());
    }
}

void print_table(const std::vector<roll_entry> &entries) {
    std::vector<row> rows = {
        {"STATE", "NAME", "ADDRESS", "HARDWARE ADDRESS", "VERSION", "ASKS FOR", "NOTE"}};
    for (const roll_entry &entry : entries) {
        rows.push_back({to_text(entry.state),
                        entry.expected ? printable(entry.expected->unit.name) : "-",
                        address_of(entry), hardware_address_of(entry), version_of(entry),
                        requests_text(entry), note_of(entry)});
    }
    print_rows(rows);
}

void print_summary(const std::vector<roll_entry> &entries) {
    const auto count = [&entries](roll_state state) {
        return std::ranges::count(entries, state, &roll_entry::state);
    };
    const auto unknown = count(roll_state::unknown);
    std::string line = std::to_string(count(roll_state::present)) + " of " +
                       std::to_string(std::ssize(entries) - unknown) + " present";
    for (const roll_state state :
         {roll_state::replaced, roll_state::moved, roll_state::missing, roll_state::unknown}) {
        if (const auto number = count(state); number > 0) {
            line += ", " + std::to_string(number) + " " + to_text(state);
        }
    }
    std::printf("%s\n", line.c_str());
}

std::string answer_members(const roll_answer &answer, const std::vector<roll_answer> &answers) {
    const std::string duplicates = joined(duplicates_of(answer, answers), "\"");
    return "\"address\": \"" + host_text(answer.address) + "\", \"hardware_address\": \"" +
           answer.hardware_address + "\", \"version\": " + version_text(answer, "null") +
           ", \"asks_for\": [" + joined(requests_of(answer), "\"") + "]" +
           (duplicates.empty() ? "" : ", \"duplicates\": [" + duplicates + "]");
}

std::string expected_members(const inventory_unit &unit) {
    return "\"name\": " + json_quoted(unit.name) + ", \"group\": " + json_quoted(unit.group) +
           ", \"expected_address\": " + json_quoted(unit.address) +
           ", \"expected_hardware_address\": " + json_quoted(unit.hardware_address);
}

void print_json(const roll_entry &entry, const std::vector<roll_answer> &answers) {
    const std::string expected =
        entry.expected ? ", " + expected_members(entry.expected->unit) : "";
    const std::string answer = entry.answer ? ", " + answer_members(*entry.answer, answers) : "";
    std::printf("{\"state\": \"%s\"%s%s}\n", to_text(entry.state), expected.c_str(),
                answer.c_str());
}

} // namespace

void print_answers(const std::vector<roll_answer> &answers, bool as_json) {
    if (!as_json) {
        std::printf("%-15s  %-17s  %-7s  %s\n", "ADDRESS", "HARDWARE ADDRESS", "VERSION",
                    "ASKS FOR");
    }
    for (const roll_answer &answer : answers) {
        if (as_json) {
            std::printf("{%s}\n", answer_members(answer, answers).c_str());
        } else {
            std::printf("%-15s  %-17s  %-7s  %s\n", host_text(answer.address).c_str(),
                        answer.hardware_address.c_str(), version_text(answer, "-").c_str(),
                        or_dash(joined(requests_of(answer), "")).c_str());
        }
    }
}

void print_entries(const std::vector<roll_entry> &entries, const std::vector<roll_answer> &answers,
                   bool as_json) {
    if (!as_json) {
        print_table(entries);
        print_summary(entries);
        return;
    }
    for (const roll_entry &entry : entries) {
        print_json(entry, answers);
    }
}
