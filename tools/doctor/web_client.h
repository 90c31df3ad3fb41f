#pragma once

#include <string>
#include <utility>
#include <vector>

/// Asks the unit's own web server, on the loopback address that the station page has.

struct web_answer {
    int status = 0; ///< 0: there was no answer
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
};

/// GET of a name below the station page, such as "alerts.json". Waits for two seconds at most.
web_answer fetch_from_unit(const std::string &name);

/// The value of the header, whatever its capitals; empty if there is none.
std::string header_of(const web_answer &answer, const std::string &name);
