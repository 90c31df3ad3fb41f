#include "tools/gatewayctl/watch.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/ending.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/inbox.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/metrics.h"
#include "tools/gatewayctl/metrics_server.h"
#include "tools/gatewayctl/records.h"
#include "tools/gatewayctl/replace_file.h"
#include "tools/gatewayctl/shortage.h"
#include "tools/gatewayctl/text.h"
#include "tools/gatewayctl/watch_output.h"
#include "tools/gatewayctl/watch_words.h"

#include <csignal>
#include <cstdint>
#include <set>
#include <span>

namespace {

// A signal that arrives just before the wait is noticed after this at the latest.
constexpr std::chrono::milliseconds longest_wait(200);

// So often at most, however much changes.
constexpr std::chrono::seconds file_pause(1);

class watcher {
  public:
    explicit watcher(const watch_settings &settings);

    void run();

  private:
    void call_roll(moment now);
    void take(const sockaddr_in &from, std::span<const std::uint8_t> bytes);
    void write_metrics(moment now);
    void wait();
    std::string metrics() const;

    const watch_settings &settings_;
    watch_output output_;
    shortage lack_;
    record_inbox inbox_;
    fleet units_;
    watch_counts counts_;
    std::optional<metrics_server> server_;
    clock_type::time_point next_call_;
    clock_type::time_point next_writing_;
    bool is_written_ = false;
    std::string call_failure_;
    std::string file_failure_;
};

watcher::watcher(const watch_settings &settings)
    : settings_(settings), output_(settings.as_json),
      lack_([this] { output_.note("watch", "is out of file descriptors: units have to wait"); }),
      inbox_(lack_), units_(settings.units, moment_now().wall, [this](const fleet_change &change) {
          output_.tell(change, units_.has_names());
      }) {
    if (settings.listen) {
        server_.emplace(*settings.listen, lack_, [this] { return metrics(); });
    }
    if (!settings.metrics_file.empty()) {
        replace_file(settings.metrics_file, metrics()); // fails before anything is called
    }
    next_call_ = clock_type::now();
}

std::string watcher::metrics() const {
    return metrics_text(units_, counts_, settings_.every);
}

void watcher::run() {
    output_.note("watch", "calls the roll every " +
                              span_text(std::chrono::ceil<std::chrono::seconds>(settings_.every)));
    while (!has_to_end()) {
        const moment now = moment_now();
        if (now.steady >= next_call_) {
            call_roll(now);
        }
        write_metrics(now);
        output_.complain(call_failure_.empty() ? file_failure_ : call_failure_);
        output_.show(units_, now, next_call_);
        wait();
    }
    output_.note("watch", "ends");
}

void watcher::call_roll(moment now) {
    units_.judge(now);
    std::set<std::uint32_t> not_called;
    call_failure_.clear();
    for (const sockaddr_in &to : settings_.calls) {
        try {
            send_over_udp(to, make_rollcall_request());
        } catch (const run_failure &failure) {
            not_called.insert(ntohl(to.sin_addr.s_addr));
            ++counts_.failed_calls;
            call_failure_ = std::string("the roll call fails: ") + failure.what();
        }
    }
    if (not_called.size() < settings_.calls.size()) {
        units_.note_call(now, not_called);
        ++counts_.calls;
    }
    next_call_ = now.steady + settings_.every;
    is_written_ = false;
}

void watcher::take(const sockaddr_in &from, std::span<const std::uint8_t> bytes) {
    is_written_ = false;
    const auto record = parse_record(bytes);
    if (!record) {
        ++counts_.invalid_records;
        output_.note(host_text(from), "sent an invalid record: " + to_hex(bytes));
    } else if (!units_.note_record(ntohl(from.sin_addr.s_addr), *record, moment_now())) {
        output_.note(host_text(from), "is one unit too many for the table");
    }
}

void watcher::write_metrics(moment now) {
    if (settings_.metrics_file.empty() || is_written_ || now.steady < next_writing_) {
        return;
    }
    try {
        replace_file(settings_.metrics_file, metrics());
        file_failure_.clear();
    } catch (const run_failure &failure) {
        file_failure_ = failure.what();
    }
    is_written_ = true;
    next_writing_ = now.steady + file_pause;
}

void watcher::wait() {
    poll_set events(clock_type::now() + longest_wait);
    inbox_.watch(events);
    events.wake_by(next_call_);
    if (server_) {
        server_->watch(events);
    }
    events.wait();
    inbox_.advance(events, [this](const sockaddr_in &from, std::span<const std::uint8_t> bytes) {
        take(from, bytes);
    });
    if (server_) {
        server_->advance();
    }
}

} // namespace

void watch(const watch_settings &settings) {
    end_by_signals();
    std::signal(SIGPIPE, SIG_IGN); // a reader or a client that goes away is told by its errors
    watcher(settings).run();
}
