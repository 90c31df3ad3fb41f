#include "report.h"

#include "shrink.h"

namespace virtual_time {

namespace {

// A crash is told without its time.
std::string describe(const outcome &result) {
    return (result.at > 0 ? describe_time(result.at) + "  " : "") + result.text;
}

} // namespace

std::string report_violation(std::uint64_t seed, int hours, const history &events,
                             const outcome &result) {
    const std::string duration = hours % 24 == 0 ? " --days " + std::to_string(hours / 24)
                                                 : " --hours " + std::to_string(hours);
    std::string text = "seed " + std::to_string(seed) + ": " + describe(result) +
                       "\n  again: ./scripts/year --seed " + std::to_string(seed) + duration + "\n";
    const shortest found = shrink(events, result);
    text += "  shortest history: " + std::to_string(found.events.size()) + " of " +
            std::to_string(events.size()) + " events, after " + std::to_string(found.runs) +
            " runs\n";
    for (const happening &event : found.events) {
        text += "    " + describe(event) + "\n";
    }
    return text + "    " + describe(found.result) + "\n";
}

void add(counters &sum, const counters &more) {
    sum.steps += more.steps;
    sum.messages += more.messages;
    sum.records += more.records;
    sum.notifications += more.notifications;
    sum.browsers += more.browsers;
    sum.starts += more.starts;
    sum.watchdog_resets += more.watchdog_resets;
}

std::string describe(const counters &counts) {
    return std::to_string(counts.steps) + " steps: " + std::to_string(counts.messages) +
           " messages, " + std::to_string(counts.records) + " records, " +
           std::to_string(counts.notifications) + " CEC messages heard, " +
           std::to_string(counts.browsers) + " browsers, " + std::to_string(counts.starts) +
           " starts, " + std::to_string(counts.watchdog_resets) + " of them after the watchdog";
}

} // namespace virtual_time
