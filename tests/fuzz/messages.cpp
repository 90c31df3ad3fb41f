// Sequences of messages on both channels: what the service writes, sends, starts, and leaves open after
// each is compared with a small model of it.

#include "cec/cec.h"
#include "hdtv/alert_document.h"
#include "hdtv/alerts.h"
#include "hdtv/kiosk.h"
#include "hdtv/protocol.h"
#include "hdtv/tcp_channel.h"
#include "hdtv/udp_channel.h"

#include "alert_model.h"
#include "fake_calls.h"
#include "fuzz_service.h"
#include "fuzz_target.h"
#include "recording_port.h"
#include "wire.h"

#include <algorithm>
#include <array>

namespace {

constexpr const char *document_file = "/dev/shm/alerts.json";
constexpr const char *log_file = "/tmp/alerts.log";
constexpr const char *gateway_file = "/dev/shm/current_gateway";
constexpr const char *config_file_path = "/var/www/config.json";
constexpr int most_messages = 24;

std::string take_detail(fuzz_input &input) {
    wire::detail_alert alert;
    alert.flag = input.byte() < 0xC0 ? 1 : input.byte();
    for (int count = input.byte() % 18; count > 0; --count) {
        const int slot = input.byte() % 16;
        const int color = input.byte();
        alert.units[slot] = {input.text(input.byte() % 33U), color};
    }
    alert.turnout_end = input.number16();
    alert.turnout_zero = input.number16();
    alert.turnout_reverse = input.byte();
    alert.text_length = input.byte() < 0xC0 ? -1 : input.number16();
    alert.text = input.long_text();
    return alert.bytes();
}

std::string take_display(fuzz_input &input) {
    const int flag = input.byte() < 0xC0 ? 1 : input.byte();
    const int turnout = input.number16();
    const bool has_turnout = input.byte() % 2 == 0;
    const std::string text = input.long_text();
    return wire::display_alert(text, flag) + (has_turnout ? wire::big_endian(turnout) : "");
}

// Any bytes, or one of those that need many bytes in their places.
std::string take_message(fuzz_input &input) {
    static constexpr std::array<char, 10> types = {1, 32, 38, 40, 46, 48, 49, 52, 123, 51};
    const int kind = input.byte() % 16;
    if (kind < 3) {
        return take_detail(input);
    }
    if (kind < 5) {
        return take_display(input);
    }
    if (kind == 15) {
        return input.long_text();
    }
    return types[static_cast<std::size_t>(kind - 5)] + input.long_text();
}

struct scene {
    fuzz_input input;
    alert_model model;
    fuzz_service service;
    int left_open = 0;

    explicit scene(fuzz_input from) : input(from) {}
};

// The television answers with "on" whenever it is asked while it is in standby.
void answer_as_television(const std::string &call) {
    if (call == "send 0: 8F") {
        recording_port::receive({0x04, 0x90, 0x00});
    }
}

void begin(scene &s) {
    recording_port::reset();
    recording_port::on_call = nullptr;
    cec_init();
    cec_alert_active(); // forgets what the last input left
    recording_port::on_call = answer_as_television;
    fake::state.interfaces = {{"eth0", "10.0.0.5", std::string("\x00\x11\x22\xAA\xBB\xCC", 6)}};
    const int kind = s.input.byte();
    log_alerts = kind % 8 == 0; // each line that is logged leaves a few bytes behind
    if (kind % 4 != 1) {
        s.model.config = kind % 4 == 2 ? s.input.short_text() : R"({"rotation":"90"})";
        fake::state.files[config_file_path] = *s.model.config;
    }
    s.service.output.take();
}

struct step {
    std::string message;
    circumstances around;
    bool is_lost = false; // it cannot be accepted or received
    bool is_unreadable = false;
};

void make_standby(scene &s) {
    recording_port::receive({0x04, 0x90, 0x01});
    s.model.is_standby = true;
}

step take_step(scene &s) {
    step next;
    const int control = s.input.byte();
    circumstances &around = next.around;
    around.via = control % 2 == 0 ? channel::tcp : channel::udp;
    around.peer = control % 4 < 2 ? "10.0.0.20" : "10.0.0.21";
    fake::state.failing.clear();
    const bool cannot_fork = control % 32 == 31;
    around.next_pid = cannot_fork ? -1 : fake::state.next_pid;
    if (cannot_fork) {
        fake::state.failing.emplace_back("fork");
    }
    if (control >= 0x80) {
        const int more = s.input.byte();
        around.failing_connect = more % 4;
        fake::state.failing.push_back("connect#" + std::to_string(more % 4));
        next.is_lost = more % 32 == 31;
        next.is_unreadable = more % 32 == 30;
        fake::state.now += more / 32 * 1000;
        if (more % 8 == 3) {
            make_standby(s);
        }
    }
    around.now = static_cast<std::uint32_t>(fake::state.now);
    next.message = take_message(s.input);
    return next;
}

void deliver(const step &next) {
    fake::state.connections = {
        {next.around.peer, next.message, next.is_unreadable ? ECONNRESET : 0}};
    fake::state.datagrams = {{next.around.peer, next.message}};
    if (next.is_lost) {
        fake::state.failing.insert(fake::state.failing.end(), {"accept", "recvfrom"});
    }
    if (next.around.via == channel::tcp) {
        connect_fn(3, 0, nullptr);
    } else {
        rollcall_fn(4, 0, nullptr);
    }
}

void expect_written(const expected_actions &expected, const std::string &before,
                    const std::string &printed) {
    const std::string document = fake::state.files[document_file];
    if (!expected.document) {
        REQUIRE_SAME(document, before);
        REQUIRE(printed.find("Writing JSON: [{\"alert_type\"") == std::string::npos ||
                printed.find("Writing JSON: ") != 0);
        return;
    }
    expect_document(document, *expected.document);
    REQUIRE(printed.ends_with("Writing JSON: " + document + "\n"));
    const std::string &log = fake::state.files[log_file];
    REQUIRE(log_alerts ? log.ends_with(": " + document + "\n") && log.size() == document.size() + 20
                       : log.empty());
}

void expect_children(const expected_actions &expected) {
    REQUIRE(fake::state.calls_of("fork").size() == static_cast<std::size_t>(expected.forks));
    std::vector<std::string> kills;
    std::vector<std::string> waits(static_cast<std::size_t>(expected.waits), "wait");
    for (const int pid : expected.killed) {
        kills.push_back("kill " + std::to_string(pid) + " 9");
        waits.push_back("waitpid " + std::to_string(pid) + " 0");
    }
    REQUIRE(fake::state.calls_of("kill") == kills);
    std::vector<std::string> waited = fake::state.calls_of("wait");
    std::ranges::sort(waited);
    std::ranges::sort(waits);
    REQUIRE(waited == waits);
}

// Everything is closed again but what is deliberately left open, and that is close-on-exec.
void expect_descriptors(const expected_actions &expected) {
    REQUIRE(fake::open_files.size() == static_cast<std::size_t>(expected.left_open));
    for (const auto &[fd, file] : fake::open_files) {
        REQUIRE(fake::state.calls_of("close-on-exec " + std::to_string(fd)).size() == 1);
    }
    fake::open_files.clear();
}

void expect_gateway(const alert_model &model) {
    const std::string expected = model.gateway ? "{\"gateway_addr\": \"" + *model.gateway +
                                                     "\", \"mac_addr\": \"001122AABBCC\"}"
                                               : "";
    REQUIRE_SAME(fake::state.files[gateway_file], expected);
}

void forget(scene &s) {
    fake::state.calls.clear();
    fake::state.sent.clear();
    fake::state.files[log_file].clear();
    recording_port::forget_calls();
    s.service.output.take();
}

void take_one(scene &s) {
    const step next = take_step(s);
    forget(s);
    const std::string before = fake::state.files[document_file];
    deliver(next);
    expected_actions expected;
    if (next.is_unreadable && !next.is_lost && next.around.via == channel::tcp) {
        expected.left_open = 1;
    } else if (!next.is_lost) {
        expected = s.model.take(next.message, next.around);
    }
    expect_written(expected, before, s.service.output.take());
    expect_children(expected);
    expect_descriptors(expected);
    expect_gateway(s.model);
    REQUIRE(fake::state.sent == expected.sent);
    REQUIRE(recording_port::calls() == expected.cec);
    REQUIRE(fake::state.files.contains(config_file_path) == s.model.config.has_value());
    if (s.model.config) {
        REQUIRE_SAME(fake::state.files[config_file_path], *s.model.config);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    scene s(fuzz_input(data, size));
    begin(s);
    for (int count = 0; count < most_messages && !s.input.is_used_up(); ++count) {
        take_one(s);
    }
    return 0;
}
