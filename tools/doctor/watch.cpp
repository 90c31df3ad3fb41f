#include "tools/doctor/watch.h"

#include <cstdio>
#include <ctime>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr const char *clear_terminal = "\033[H\033[J";

std::string time_of_day() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[16] = "";
    std::strftime(text, sizeof text, "%H:%M:%S", &local);
    return text;
}

bool put(const std::string &text) {
    return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
}

} // namespace

std::string change_log::take(const std::vector<section> &sections, const report_style &style,
                             const std::string &time) {
    // A link may have several lines, such as the faults of a configuration.
    std::map<std::pair<std::string, std::string>, std::vector<grade>> now;
    for (const section &each : sections) {
        for (const finding &found : each.found) {
            now[{each.name, found.link}].push_back(found.result);
        }
    }
    std::string text;
    for (const section &each : sections) {
        for (const finding &found : each.found) {
            const std::pair key(each.name, found.link);
            if (now[key] != known_[key]) {
                text += to_text(each.name, found, style, time);
            }
        }
    }
    known_ = std::move(now);
    return text;
}

std::vector<section> watch(const std::function<std::vector<section>()> &look,
                           const report_style &style, std::chrono::milliseconds pause,
                           const volatile std::sig_atomic_t &is_over) {
    const bool is_in_place = isatty(STDOUT_FILENO) == 1 && !style.as_json;
    change_log changes;
    for (;;) {
        std::vector<section> sections = look();
        const std::string text = is_in_place ? clear_terminal + time_of_day() + ", until Ctrl-C\n" +
                                                   to_text(sections, style)
                                             : changes.take(sections, style, time_of_day());
        if (!put(text) || is_over != 0) {
            return sections;
        }
        poll(nullptr, 0, static_cast<int>(pause.count())); // a signal ends it
        if (is_over != 0) {
            return sections;
        }
    }
}
