#include "tools/gatewayctl/serve.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/date.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/records.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>

namespace {

using clock_type = std::chrono::steady_clock;

volatile std::sig_atomic_t has_to_end = 0;

void end_fn(int /*signal*/) {
    has_to_end = 1;
}

void end_by_signals() {
    struct sigaction action {};
    action.sa_handler = end_fn; // without SA_RESTART, so that a wait ends too
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void say(const std::string &who, const std::string &what) {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm local{};
    char time[16];
    localtime_r(&seconds, &local);
    std::strftime(time, sizeof time, "%H:%M:%S", &local);
    std::printf("%s.%03d  %-15s  %s\n", time, static_cast<int>(milliseconds), who.c_str(),
                what.c_str());
    std::fflush(stdout);
}

void answer(sockaddr_in unit, const std::string &what, const message_bytes &message,
            const serve_settings &settings) {
    unit.sin_port = htons(protocol::command_port);
    try {
        send_over_tcp(unit, message, settings.timeout);
        say(host_text(unit), "has taken " + what);
    } catch (const run_failure &failure) {
        say(host_text(unit), "could not be sent " + what + ": " + failure.what());
    }
}

void take_record(const sockaddr_in &from, std::span<const std::uint8_t> bytes,
                 const serve_settings &settings) {
    const auto record = parse_record(bytes);
    if (!record) {
        say(host_text(from), "sent what is no record: " + to_hex(bytes));
        return;
    }
    const std::string by = " (" + record->hardware_address + ")";
    switch (record->type) {
    case record_type::rollcall_reply:
        say(host_text(from), "is there, version " + std::to_string(record->version) + by);
        break;
    case record_type::set_date_request:
        say(host_text(from), "asks for the date" + by);
        answer(from, "the date", make_set_date(date_now(), transport::tcp), settings);
        break;
    case record_type::settings_request:
        say(host_text(from), "asks for its settings" + by);
        answer(from, "the rotation " + std::to_string(settings.rotation),
               make_hdtv_settings(settings.rotation), settings);
        break;
    }
}

void call_roll(const sockaddr_in &to) {
    try {
        send_over_udp(to, make_rollcall_request());
        say(host_text(to), "is called");
    } catch (const run_failure &failure) {
        say(host_text(to), failure.what());
    }
}

} // namespace

void serve(const serve_settings &settings) {
    end_by_signals();
    record_inbox inbox;
    say("gateway", "listens for units");
    auto next_call = clock_type::now();
    while (has_to_end == 0) {
        if (settings.roll_call && clock_type::now() >= next_call) {
            call_roll(*settings.roll_call);
            next_call = clock_type::now() + settings.every;
        }
        // A signal that comes just before the wait is seen after this at the latest.
        constexpr std::chrono::milliseconds longest_wait(200);
        inbox.serve(longest_wait,
                    [&settings](const sockaddr_in &from, std::span<const std::uint8_t> bytes) {
                        take_record(from, bytes, settings);
                    });
    }
    say("gateway", "ends");
}
