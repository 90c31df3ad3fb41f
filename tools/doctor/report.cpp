#include "tools/doctor/report.h"

#include "tools/gatewayctl/text.h"

#include <algorithm>

namespace {

constexpr std::size_t grade_width = 13;

struct grade_look {
    const char *word;
    const char *json_word;
    const char *color;
};

grade_look look_of(grade result) {
    switch (result) {
    case grade::ok:
        return {"ok", "ok", "\033[32m"};
    case grade::fail:
        return {"FAIL", "fail", "\033[1;31m"};
    case grade::cannot_tell:
        break;
    }
    return {"cannot tell", "cannot tell", "\033[33m"};
}

std::string colored(const std::string &text, const char *color, const report_style &style) {
    return style.is_colored ? color + text + "\033[0m" : text;
}

std::string grade_column(grade result, const report_style &style) {
    const grade_look look = look_of(result);
    const std::string word = look.word;
    return colored(word, look.color, style) + std::string(grade_width - word.size(), ' ');
}

std::string json_member(const char *name, const std::string &value) {
    return std::string("\"") + name + "\": " + json_quoted(value);
}

std::string to_json(const std::string &section_name, const finding &found,
                    const std::string &time) {
    std::string line = "{";
    if (!time.empty()) {
        line += json_member("time", time) + ", ";
    }
    line += json_member("section", section_name) + ", " + json_member("link", found.link) + ", " +
            json_member("grade", look_of(found.result).json_word) + ", " +
            json_member("evidence", found.evidence);
    if (!found.next.empty()) {
        line +=
            ", " + json_member("next", found.next) + ", " + json_member("chapter", found.chapter);
    }
    return line + "}\n";
}

std::string counts_line(const std::vector<section> &sections) {
    std::size_t counts[3] = {};
    for (const section &each : sections) {
        for (const finding &found : each.found) {
            ++counts[static_cast<std::size_t>(found.result)];
        }
    }
    return std::to_string(counts[0]) + " ok, " + std::to_string(counts[1]) + " FAIL, " +
           std::to_string(counts[2]) + " cannot tell\n";
}

} // namespace

std::string to_text(const std::string &section_name, const finding &found,
                    const report_style &style, const std::string &time) {
    if (style.as_json) {
        return to_json(section_name, found, time);
    }
    const std::string before = time.empty() ? "  " : time + "  ";
    std::string lines = before + grade_column(found.result, style) + found.link + ": " +
                        printable(found.evidence) + "\n";
    if (!found.next.empty()) {
        lines += std::string(before.size() + grade_width, ' ') + "next: " + printable(found.next) +
                 " (\"" + found.chapter + "\")\n";
    }
    return lines;
}

std::string to_text(const std::vector<section> &sections, const report_style &style) {
    std::string text;
    for (const section &each : sections) {
        if (!style.as_json) {
            text += each.name + "\n";
        }
        for (const finding &found : each.found) {
            text += to_text(each.name, found, style);
        }
    }
    if (style.as_json) {
        return text;
    }
    text += "\n" + counts_line(sections);
    if (has_failure(sections)) {
        text += "The chapters in quotation marks are those of docs/operations.md.\n";
    }
    return text;
}

bool has_failure(const std::vector<section> &sections) {
    return std::ranges::any_of(sections, [](const section &each) {
        return std::ranges::any_of(
            each.found, [](const finding &found) { return found.result == grade::fail; });
    });
}
