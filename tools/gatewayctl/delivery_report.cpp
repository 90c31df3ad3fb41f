#include "tools/gatewayctl/delivery_report.h"

#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr const char *udp_reservation = "UDP does not confirm delivery";

const char *done_word(channel via) {
    return via == channel::udp ? "sent" : "taken";
}

void say_json(const delivery_result &result, channel via) {
    const std::string error =
        result.failure.empty() ? "" : ", \"error\": " + json_quoted(result.failure);
    std::printf("{\"name\": %s, \"address\": %s, \"result\": \"%s\", \"attempts\": %d, "
                "\"milliseconds\": %lld%s}\n",
                json_quoted(result.unit.name).c_str(), json_quoted(result.address).c_str(),
                result.failure.empty() ? done_word(via) : "failed", result.attempts,
                static_cast<long long>(result.time.count()), error.c_str());
}

} // namespace

delivery_report::delivery_report(report_form form, const std::vector<inventory_unit> &units,
                                 channel via, std::size_t message_size, bool is_on_terminal)
    : form_(form), via_(via), message_size_(message_size),
      shows_progress_(is_on_terminal && form != report_form::one_unit), total_(units.size()) {
    for (const inventory_unit &unit : units) {
        name_width_ = std::max(name_width_, width_of(printable(unit.name)));
    }
    show_progress();
}

void delivery_report::add(const delivery_result &result) {
    ++known_;
    if (!result.failure.empty()) {
        failed_.push_back(result.unit);
    }
    hide_progress();
    switch (form_) {
    case report_form::one_unit:
        say_one(result);
        break;
    case report_form::table:
        say_line(result);
        break;
    case report_form::json:
        say_json(result, via_);
        break;
    }
    std::fflush(stdout);
    show_progress();
}

void delivery_report::say_one(const delivery_result &result) const {
    const std::string size = bytes_text(message_size_);
    if (!result.failure.empty()) {
        std::fprintf(stderr, "gatewayctl: %s\n", printable(result.failure).c_str());
    } else if (via_ == channel::udp) {
        std::printf("%s sent to %s; %s\n", size.c_str(), result.address.c_str(), udp_reservation);
    } else {
        std::printf("%s taken by %s; TCP does not prove that it is a unit\n", size.c_str(),
                    result.address.c_str());
    }
}

void delivery_report::say_line(const delivery_result &result) const {
    const std::string name = padded(printable(result.unit.name), name_width_);
    const std::string words =
        result.failure.empty() ? done_word(via_) : "FAILED: " + printable(result.failure);
    const std::string attempts =
        result.attempts > 1 ? " (attempt " + std::to_string(result.attempts) + ")" : "";
    std::printf("%s  %-21s  %s%s\n", name.c_str(), printable(result.address).c_str(), words.c_str(),
                attempts.c_str());
}

void delivery_report::finish() const {
    hide_progress();
    if (form_ != report_form::table) {
        return;
    }
    const std::string failures =
        failed_.empty() ? "" : ", " + std::to_string(failed_.size()) + " failed";
    const std::string reservation = taken() == 0 ? ""
                                    : via_ == channel::udp
                                        ? std::string("; ") + udp_reservation
                                        : "; TCP does not prove that they are units";
    std::printf("%s %s %zu of %zu%s%s\n", bytes_text(message_size_).c_str(),
                via_ == channel::udp ? "sent to" : "taken by", taken(), total_, failures.c_str(),
                reservation.c_str());
    std::fflush(stdout);
}

void delivery_report::show_progress() const {
    if (shows_progress_ && known_ < total_) {
        const std::string failures =
            failed_.empty() ? "" : ", " + std::to_string(failed_.size()) + " failed";
        std::fprintf(stderr, "%zu of %zu%s", known_, total_, failures.c_str());
        std::fflush(stderr);
    }
}

void delivery_report::hide_progress() const {
    if (shows_progress_) {
        std::fputs("\r\x1b[K", stderr);
        std::fflush(stderr);
    }
}
