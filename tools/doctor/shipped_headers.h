#pragma once

#include <string>
#include <utility>
#include <vector>

using header_list = std::vector<std::pair<std::string, std::string>>;

/// The headers that a text in the form of the web server's configuration sets in each answer.
header_list headers_set_in(const std::string &configuration);

/// Those of the configuration that comes with this version.
header_list shipped_headers();
