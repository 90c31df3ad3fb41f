#include "tools/gatewayctl/serve.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/ending.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/inbox.h"
#include "tools/gatewayctl/poll_set.h"
#include "tools/gatewayctl/say.h"
#include "tools/gatewayctl/shortage.h"

namespace {

void call_roll(const sockaddr_in &to) {
    try {
        send_over_udp(to, make_rollcall_request());
        say(host_text(to), "is called");
    } catch (const run_failure &failure) {
        say(host_text(to), failure.what());
    }
}

void serve_once(record_inbox &inbox, answer_desk &desk) {
    // A signal that arrives just before the wait is noticed after this at the latest.
    constexpr std::chrono::milliseconds longest_wait(200);
    poll_set events(clock_type::now() + longest_wait);
    inbox.watch(events, desk.has_room());
    desk.watch(events);
    events.wait();
    desk.end_answers(events);
    inbox.advance(events, [&desk](const sockaddr_in &from, std::span<const std::uint8_t> bytes) {
        desk.take(from, bytes);
    });
    desk.serve_visitors();
}

} // namespace

void serve(const serve_settings &settings) {
    end_by_signals();
    shortage lack([] { say("gateway", "is out of file descriptors: units have to wait"); });
    record_inbox inbox(lack);
    answer_desk desk(settings.desk, lack);
    say("gateway", "listens for units");
    auto next_call = clock_type::now();
    while (!has_to_end()) {
        if (settings.roll_call && clock_type::now() >= next_call) {
            call_roll(*settings.roll_call);
            next_call = clock_type::now() + settings.every;
        }
        serve_once(inbox, desk);
    }
    say("gateway", "ends");
}
