#pragma once

#include <string>
#include <utility>
#include <vector>

/// What was found about one link of the chain from the gateway to the television.

enum class grade { ok, fail, cannot_tell };

struct finding {
    std::string link;
    grade result;
    std::string evidence; ///< one line; may hold untrusted text
    std::string next;     ///< what to do about it; empty if there is nothing to do
    std::string chapter;  ///< of docs/operations.md, by its heading; empty without a next step
};

using findings = std::vector<finding>;

struct section {
    std::string name;
    findings found;
};

inline finding is_ok(std::string link, std::string evidence) {
    return {std::move(link), grade::ok, std::move(evidence), "", ""};
}

inline finding has_failed(std::string link, std::string evidence, std::string next,
                          std::string chapter) {
    return {std::move(link), grade::fail, std::move(evidence), std::move(next), std::move(chapter)};
}

inline finding cannot_tell(std::string link, std::string evidence, std::string next = "",
                           std::string chapter = "") {
    return {std::move(link), grade::cannot_tell, std::move(evidence), std::move(next),
            std::move(chapter)};
}

/// The headings of docs/operations.md that the next steps refer to.
namespace chapter {
constexpr const char *parts = "What a unit consists of";
constexpr const char *debian = "A unit that runs Debian";
constexpr const char *image = "Build an image";
constexpr const char *start = "Start it and stop it";
constexpr const char *configure = "Configure";
constexpr const char *no_wake = "Why does this television not wake?";
constexpr const char *trouble = "When something is wrong";
constexpr const char *deaf = "Faults that make a unit deaf";
constexpr const char *upkeep = "A year without a hand on it";
} // namespace chapter
