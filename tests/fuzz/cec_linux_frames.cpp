// The frames and events of the kernel's CEC device. What is notified and answered is compared with a
// small model.

#include "cec/cec_port.h"

#include "fake_cec_device.h"
#include "fuzz_target.h"
#include "printed_text.h"

#include <array>
#include <pthread.h>
#include <vector>

namespace {

using words = std::array<std::uint32_t, 5>;
using frame = std::vector<std::uint8_t>;

std::vector<words> notified;
int lost_count;

void take_notification(void * /*data*/, std::uint32_t param0, std::uint32_t param1,
                       std::uint32_t param2, std::uint32_t param3, std::uint32_t param4) {
    notified.push_back({param0, param1, param2, param3, param4});
}

words packed(std::uint32_t reason, std::uint32_t result, const frame &message) {
    words packed = {reason | static_cast<std::uint32_t>(message.size()) << 16 | result << 24};
    for (std::size_t i = 0; i < message.size(); ++i) {
        packed[1 + i / 4] |= std::uint32_t{message[i]} << (8 * (i % 4));
    }
    return packed;
}

struct device_model {
    fake_cec_device::settings settings;
    std::array<bool, 256> is_forwarded{};
    bool has_link = true;
    std::vector<words> received, transmitted;
    std::vector<std::string> calls;
    std::string errors, late_errors;

    void take(const frame &message);
    void answer(std::uint8_t header, const frame &payload);
};

void device_model::take(const frame &message) {
    if (message.size() < 2) {
        return;
    }
    if (is_forwarded[message[1]]) {
        received.push_back(packed(2, 0, message));
        return;
    }
    const bool is_to_all = (message[0] & 0x0F) == 15;
    const bool is_from_nobody = message[0] >> 4 == 15;
    if (is_to_all || is_from_nobody || message[1] == 0) {
        return;
    }
    answer(message[0], message[1] == 0x8F ? frame{0x90, 0} : frame{0, message[1], 0});
}

void device_model::answer(std::uint8_t header, const frame &payload) {
    const unsigned own = has_link ? settings.logical_address : 15;
    frame sent = {static_cast<std::uint8_t>(own << 4 | header >> 4)};
    sent.insert(sent.end(), payload.begin(), payload.end());
    std::string call = "TRANSMIT";
    for (std::size_t i = 0; i < sent.size(); ++i) {
        char text[8];
        std::snprintf(text, sizeof text, i == 0 ? " %02X" : ":%02X", sent[i]);
        call += text;
    }
    calls.push_back(call);
    const unsigned status = settings.tx_status;
    transmitted.push_back(packed(1, (status & 1) != 0 ? 0 : status, sent));
    if ((status & 1) == 0) {
        late_errors +=
            (status & 4) != 0 ? "CEC: /dev/cec0: no answer\n" : "CEC: /dev/cec0: not sent\n";
    }
}

void plug(device_model &m, std::uint16_t address) {
    fake_cec_device::plug(address);
    m.has_link = address != 0xFFFF;
    m.errors += m.has_link ? "" : "CEC: /dev/cec0: no link\n";
}

// Everything is there before the provider reads it: first all the events, then all the frames.
void prepare(device_model &m, fuzz_input &input) {
    while (!input.is_used_up()) {
        const int kind = input.byte();
        if (kind < 0xE0) {
            const std::string bytes = input.text(static_cast<std::size_t>(kind % 17));
            const frame message(bytes.begin(), bytes.end());
            fake_cec_device::receive(message);
            m.take(message);
        } else if (kind < 0xF0) {
            fake_cec_device::lose_messages();
            m.errors += "CEC: /dev/cec0: messages were lost\n";
        }
    }
}

void forward(device_model &m, std::uint32_t opcode) {
    REQUIRE(vc_cec_register_command(opcode) == (opcode < 256 ? 0 : -1));
    if (opcode < 256) {
        m.is_forwarded[opcode] = true;
    }
}

// As the logic starts up, with more opcodes.
void start_up(device_model &m, fuzz_input &input) {
    cec_instance instance = nullptr;
    REQUIRE(vchi_initialise(&instance) == 0 && vchi_connect(nullptr, 0, instance) == 0);
    vc_cec_register_callback(take_notification, nullptr);
    vc_cec_deregister_all();
    for (const std::uint32_t opcode : {0x80U, 0x82U, 0x90U}) {
        forward(m, opcode);
    }
    forward(m, static_cast<std::uint32_t>(input.number16()));
}

void expect(const device_model &m, const std::string &errors) {
    std::vector<words> expected = m.received;
    expected.insert(expected.end(), m.transmitted.begin(), m.transmitted.end());
    REQUIRE(notified == expected);
    REQUIRE(fake_cec_device::calls("TRANSMIT") == m.calls);
    REQUIRE(fake_cec_device::calls("open").size() == 1);
    REQUIRE(fake_cec_device::calls("close-on-exec").size() == 1);
    REQUIRE(fake_cec_device::calls("close").size() == 2); // and the other
    REQUIRE(lost_count == 1);
    REQUIRE_SAME(errors, m.errors + m.late_errors + "CEC: /dev/cec0: the adapter is gone\n");
}

} // namespace

void cec_television_lost() {
    ++lost_count;
}

extern "C" {
// The provider's thread runs to its end at once.
int __wrap_pthread_create(pthread_t * /*thread*/, const pthread_attr_t * /*attributes*/,
                          void *(*run)(void *), void *argument) {
    run(argument);
    return 0;
}

int __wrap_pthread_detach(pthread_t /*thread*/) {
    return 0;
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz_input input(data, size);
    device_model m;
    m.settings.is_removed_at_end = true;
    m.settings.logical_address = input.byte() % 15;
    m.settings.tx_status = std::max<std::uint8_t>(input.byte(), 1); // some result there is always
    notified.clear();
    lost_count = 0;
    fake_cec_device::reset(m.settings);

    printed_text errors(stderr);
    start_up(m, input);
    // Starting claims an address on whatever is plugged in; the rest waits in the device.
    const int address = input.number16();
    if (address % 4 == 0) {
        plug(m, address % 8 == 0 ? 0xFFFF : static_cast<std::uint16_t>(address));
    }
    prepare(m, input);
    m.errors += m.has_link ? "" : "CEC: /dev/cec0: no link\n"; // said by the claim again
    cec_connection *connection = nullptr;
    vc_vchi_cec_init(nullptr, &connection, 1);
    expect(m, errors.take());
    return 0;
}
