#pragma once

#include "tools/doctor/finding.h"

#include <string>
#include <vector>

/// The report as text.

struct report_style {
    bool as_json = false;
    bool is_colored = false;
};

/// One finding: a line, and one more with the next step. In JSON a line. The time, if any, comes first.
std::string to_text(const std::string &section_name, const finding &found,
                    const report_style &style, const std::string &time = "");

/// All of them. As text with headings, and a line that counts at the end.
std::string to_text(const std::vector<section> &sections, const report_style &style);

bool has_failure(const std::vector<section> &sections);
