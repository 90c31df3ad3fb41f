#include "tools/gatewayctl/watch_output.h"

#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/say.h"
#include "tools/gatewayctl/text.h"
#include "tools/gatewayctl/watch_table.h"
#include "tools/gatewayctl/watch_words.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr const char *clear_screen = "\x1b[2J";
constexpr const char *go_home = "\x1b[H";
constexpr const char *clear_rest_of_line = "\x1b[K";
constexpr const char *clear_below = "\x1b[J";

bool is_screen() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    const char *terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

} // namespace

watch_output::watch_output(bool as_json)
    : form_(as_json       ? form::json
            : is_screen() ? form::table
                          : form::lines) {
    if (form_ == form::table) {
        std::fputs(clear_screen, stdout);
    }
}

void watch_output::tell(const fleet_change &change, bool has_names) {
    is_changed_ = true;
    if (form_ == form::json) {
        std::printf("%s\n", change_json(change).c_str());
        std::fflush(stdout);
    } else if (form_ == form::lines) {
        say(printable(name_of(change.unit)), change_text(change, has_names));
    }
}

void watch_output::note(const std::string &who, const std::string &what) const {
    if (form_ == form::lines) {
        say(who, what);
    }
}

void watch_output::complain(const std::string &what) {
    if (what == complaint_) {
        return;
    }
    complaint_ = what;
    is_changed_ = true;
    if (form_ != form::table) {
        std::fprintf(stderr, "gatewayctl: %s\n",
                     what.empty() ? "all is well again" : printable(what).c_str());
    }
}

void watch_output::show(const fleet &units, moment now, clock_type::time_point next_call) {
    if (form_ == form::table && (is_changed_ || now.steady - drawn_ >= std::chrono::seconds(1))) {
        draw(units, now, next_call);
        is_changed_ = false;
        drawn_ = now.steady;
    }
    if (std::ferror(stdout) != 0) {
        throw run_failure("nobody reads the output any more");
    }
}

void watch_output::draw(const fleet &units, moment now, clock_type::time_point next_call) const {
    table_frame frame;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0) {
        frame.rows = size.ws_row;
        frame.columns = size.ws_col;
    }
    --frame.rows; // for the cursor
    frame.now = now.wall;
    frame.until_call = std::max(std::chrono::ceil<std::chrono::seconds>(next_call - now.steady),
                                std::chrono::seconds(0));
    frame.notice = complaint_;
    std::string text = go_home;
    for (const char c : table_text(units, frame)) {
        text += c == '\n' ? clear_rest_of_line : "";
        text += c;
    }
    std::fputs((text + clear_below).c_str(), stdout);
    std::fflush(stdout);
}
