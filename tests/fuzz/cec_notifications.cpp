// The television's logic: any notifications between alerts, compared with a small model of what is
// sent and printed.

#include "cec/cec.h"
#include "cec/cec_port.h"

#include "fuzz_target.h"
#include "printed_text.h"
#include "recording_port.h"

#include <array>
#include <vector>

namespace {

constexpr std::uint16_t own_address = 0x1000;

struct notification {
    std::uint32_t first;
    std::uint32_t words[4];

    std::uint8_t byte(unsigned i) const {
        return static_cast<std::uint8_t>(words[i / 4] >> (8 * (i % 4)));
    }
};

struct television_model {
    bool is_standby = false;
    bool is_lost = false;
    bool is_off_after_alert = false;
    int active = own_address;
    std::vector<std::string> calls;
    std::string printed;

    void take(const notification &n);
    void act_on(const notification &n);
};

template <class... values> std::string formatted(const char *format, values... arguments) {
    char text[64];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

void television_model::take(const notification &n) {
    const bool is_received = (n.first & 0xFFFF) == 2;
    printed +=
        formatted("%s: %X -> %X:", is_received ? "RX" : "TX", n.byte(0) >> 4, n.byte(0) & 15);
    const unsigned length = n.first >> 16 & 0xFF;
    for (unsigned i = 1; i < length && i < 16; ++i) {
        printed += formatted(" %02X", n.byte(i));
    }
    printed += "\n";
    if (is_received) {
        act_on(n);
    }
}

void television_model::act_on(const notification &n) {
    switch (n.byte(1)) {
    case 0x80:
        active = n.byte(4) * 256 + n.byte(5);
        printed += formatted("active source now: %04X\n", active);
        break;
    case 0x82:
        active = n.byte(2);
        printed += formatted("active source now: %04X\n", active);
        break;
    case 0x85:
        calls.emplace_back("active source 1000");
        break;
    case 0x90:
        is_standby = n.byte(2) == 1;
        printed += is_standby ? "TV is in standby mode.\n" : "TV is NOT in standby mode.\n";
        break;
    default:
        break;
    }
}

notification take_notification(fuzz_input &input) {
    notification n{};
    const int kind = input.byte();
    // Mostly what a television sends: received, with an opcode that matters.
    n.first = kind < 0xC0 ? 2U | static_cast<std::uint32_t>(kind % 18) << 16 : input.number32();
    const std::string bytes = input.text(static_cast<std::size_t>(kind % 17));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        n.words[i / 4] |= std::uint32_t{static_cast<std::uint8_t>(bytes[i])} << (8 * (i % 4));
    }
    return n;
}

struct scene {
    fuzz_input input;
    television_model model;
    int pauses = 0;
};
scene *current;

void deliver(scene &s) {
    const notification n = take_notification(s.input);
    s.model.take(n);
    recording_port::raw_words(n.first, n.words);
}

void start_alert(scene &s) {
    television_model &m = s.model;
    m.is_off_after_alert = m.is_standby;
    m.printed += formatted("standby_after_alert %d\n", m.is_standby ? 1 : 0);
    s.pauses = 0;
    if (m.is_standby && !m.is_lost) {
        m.printed += "TV on standby, sending ImageViewOn\n";
        m.calls.emplace_back("send 0: 04");
    }
    cec_alert_active(); // while it waits, the model follows in what replaces sleep
    if (m.active != own_address) {
        m.calls.emplace_back("active source 1000");
        m.printed += "Switching TV to 1000\n";
    }
}

void end_alert(scene &s) {
    television_model &m = s.model;
    cec_alert_inactive();
    if (m.active == 0) {
        m.calls.emplace_back("send 0: 9D 00 00");
    } else if (m.active != own_address) {
        m.calls.push_back(formatted("active source %04X", m.active));
    }
    m.printed += formatted("standby_after_alert %d\n", m.is_off_after_alert ? 1 : 0);
    if (m.is_off_after_alert) {
        m.calls.emplace_back("send 0: 36");
    }
}

void act(scene &s) {
    switch (s.input.byte() % 8) {
    case 0:
        return start_alert(s);
    case 1:
        return end_alert(s);
    case 2:
        cec_poll_power_status();
        s.model.calls.emplace_back("send 0: 8F");
        return;
    case 3:
        if (s.input.byte() % 16 == 0) {
            cec_television_lost();
            s.model.is_lost = true;
        }
        return;
    default:
        return deliver(s);
    }
}

void begin(scene &s) {
    cec_init();
    cec_alert_active(); // forgets what the last input left
    recording_port::forget_calls();
    current = &s;
}

} // namespace

// Between two messages to a television in standby. It wakes at the latest when the input ends.
extern "C" unsigned __wrap_sleep(unsigned /*seconds*/) {
    television_model &m = current->model;
    if (++current->pauses % 2 == 1) {
        m.calls.emplace_back("send 0: 8F");
        return 0;
    }
    if (current->input.is_used_up()) {
        const notification awake = {2U | 3U << 16, {0x009000, 0, 0, 0}};
        m.take(awake);
        recording_port::raw_words(awake.first, awake.words);
    } else {
        deliver(*current);
    }
    if (m.is_standby) {
        m.printed += "TV on standby, sending ImageViewOn\n";
        m.calls.emplace_back("send 0: 04");
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    printed_text output(stdout);
    recording_port::reset();
    scene s = {fuzz_input(data, size), {}, 0};
    begin(s);
    output.take();
    while (!s.input.is_used_up()) {
        act(s);
        REQUIRE(recording_port::calls() == s.model.calls);
        REQUIRE_SAME(output.take(), s.model.printed);
        s.model.calls.clear();
        s.model.printed.clear();
        recording_port::forget_calls();
    }
    return 0;
}
