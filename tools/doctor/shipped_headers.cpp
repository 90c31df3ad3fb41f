#include "tools/doctor/shipped_headers.h"

#include "shipped_configuration.h"

#include <sstream>

namespace {

// The texts in quotation marks of a line such as:    "X-Frame-Options" => "DENY", # why
std::vector<std::string> quoted_texts(const std::string &line) {
    std::vector<std::string> texts;
    std::istringstream pieces(line);
    bool is_quoted = false;
    for (std::string piece; std::getline(pieces, piece, '"'); is_quoted = !is_quoted) {
        if (is_quoted) {
            texts.push_back(piece);
        }
    }
    return texts;
}

} // namespace

header_list headers_set_in(const std::string &configuration) {
    const std::size_t start = configuration.find("setenv.add-response-header");
    if (start == std::string::npos) {
        return {};
    }
    std::istringstream lines(configuration.substr(start));
    header_list headers;
    for (std::string line; std::getline(lines, line) && line != ")";) {
        const auto texts = quoted_texts(line);
        if (texts.size() >= 2) {
            headers.emplace_back(texts[0], texts[1]);
        }
    }
    return headers;
}

header_list shipped_headers() {
    return headers_set_in(shipped_configuration);
}
