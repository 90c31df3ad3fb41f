#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// The alert document, read apart from the code that writes it.

struct expected_document {
    std::string type;
    int flag = 0;
    std::uint32_t time = 0, turnout_end = 0, turnout_zero = 0;
    int turnout_reverse = 0;
    std::uint32_t timer = 0;
    std::string area = {};                               ///< the text as sent
    std::string map = {};                                ///< written as it is, like the names
    std::vector<std::pair<std::string, int>> units = {}; ///< name and color
};

/// Requires that the text is this document, that its alert_area unescapes to the text as it was sent,
/// and that all of it is JSON unless a value that is written unescaped prevents that.
void expect_document(const std::string &text, const expected_document &expected);
