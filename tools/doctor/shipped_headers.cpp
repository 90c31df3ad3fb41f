#include "tools/doctor/shipped_headers.h"

#include "shipped_configuration.h"

#include <regex>

header_list headers_set_in(const std::string &configuration) {
    const std::size_t start = configuration.find("setenv.add-response-header");
    if (start == std::string::npos) {
        return {};
    }
    const std::size_t end = configuration.find("\n)", start);
    const std::string block = configuration.substr(start, end - start);
    static const std::regex pair(R"re("([^"]+)" => "([^"]*)")re");
    header_list headers;
    for (std::sregex_iterator each(block.begin(), block.end(), pair), none; each != none; ++each) {
        headers.emplace_back((*each)[1], (*each)[2]);
    }
    return headers;
}

header_list shipped_headers() {
    return headers_set_in(shipped_configuration);
}
