// The full look: joins the bus through the CEC port, whichever provider it has, and asks the questions
// that the service asks.

#include "cec/cec.h"
#include "cec/cec_codes.h"
#include "cec/cec_port.h"
#include "tools/doctor/television.h"
#include "tools/gatewayctl/descriptor_owner.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int longest_look = 15000;                      // milliseconds
constexpr std::chrono::milliseconds patience(2000);      // for an answer
constexpr std::chrono::milliseconds short_patience(500); // for one that may well not come

// What the provider's thread has reported.
std::mutex mutex;
std::condition_variable changed;
television_view seen;

void take_sent(std::uint8_t opcode, std::uint8_t result) {
    if (opcode != cec_opcode::give_device_power_status) {
        return;
    }
    if (result != 0 && !is_unacknowledged(result)) {
        seen.is_unsent = true;
    } else {
        seen.is_answered = result == 0;
    }
}

void take_received(std::uint8_t opcode, std::uint8_t first, std::uint8_t second) {
    if (opcode == cec_opcode::report_power_status) {
        seen.is_answered = true;
        seen.power = power_answer::told;
        seen.power_status = first;
    } else if (opcode == cec_opcode::active_source) {
        seen.active_source = static_cast<std::uint16_t>(first << 8 | second);
    } else if (opcode == cec_opcode::feature_abort &&
               first == cec_opcode::give_device_power_status) {
        seen.is_answered = true;
        seen.power = power_answer::refused;
    }
}

void notice_fn(void * /*callback_data*/, std::uint32_t reason, std::uint32_t word,
               std::uint32_t /*param2*/, std::uint32_t /*param3*/, std::uint32_t /*param4*/) {
    const std::lock_guard lock(mutex);
    const auto opcode = static_cast<std::uint8_t>(word >> 8);
    if ((reason & 0xFFFF) == cec_reason::transmitted) {
        take_sent(opcode, static_cast<std::uint8_t>(reason >> 24));
    } else if ((reason & 0xFFFF) == cec_reason::received) {
        take_received(opcode, static_cast<std::uint8_t>(word >> 16),
                      static_cast<std::uint8_t>(word >> 24));
    }
    changed.notify_all();
}

template <typename condition> void wait_for(condition is_met, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, limit, is_met);
}

bool send(std::uint32_t destination, std::uint8_t question) {
    return vc_cec_send_message(destination, &question, 1, 0) == 0;
}

bool join_bus() {
    cec_instance instance = nullptr;
    if (vchi_initialise(&instance) != 0 || vchi_connect(nullptr, 0, instance) != 0) {
        return false;
    }
    cec_connection *connection = nullptr;
    vc_vchi_cec_init(instance, &connection, 1);
    vc_cec_register_callback(notice_fn, nullptr);
    vc_cec_deregister_all();
    for (const std::uint8_t forwarded :
         {cec_opcode::active_source, cec_opcode::report_power_status, cec_opcode::feature_abort}) {
        vc_cec_register_command(forwarded);
    }
    return true;
}

void announce() {
    vc_cec_set_vendor_id(cec_vendor_id);
    vc_cec_set_osd_name(cec_osd_name);
    std::uint32_t logical = 0;
    std::uint16_t physical = 0;
    const bool has_logical = vc_cec_get_logical_address(&logical) == 0;
    const bool has_physical = vc_cec_get_physical_address(&physical) == 0;
    const std::lock_guard lock(mutex);
    if (has_logical) {
        seen.logical_address = static_cast<std::uint8_t>(logical);
    }
    if (has_physical) {
        seen.physical_address = physical;
    }
}

void look() {
    if (!join_bus()) {
        seen.adapter = adapter_state::busy;
        return;
    }
    seen.adapter = adapter_state::open;
    announce();
    if (!send(cec_logical_address::tv, cec_opcode::give_device_power_status)) {
        const std::lock_guard lock(mutex);
        seen.is_unsent = true;
        return;
    }
    wait_for(
        [] {
            return seen.power != power_answer::none || seen.is_answered == false || seen.is_unsent;
        },
        patience);
    if (seen.power == power_answer::told) {
        send(cec_logical_address::broadcast, cec_opcode::request_active_source);
        wait_for([] { return seen.active_source.has_value(); }, short_patience);
    }
}

// In the child: the view goes into the pipe, and what the provider says into the file.
[[noreturn]] void look_and_tell(int result, int complaints) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(complaints, STDERR_FILENO);
    look();
    const std::lock_guard lock(mutex);
    const bool is_told = write(result, &seen, sizeof seen) == sizeof seen;
    _exit(is_told ? 0 : 1); // the provider's thread is still running
}

std::string text_in(int file) {
    std::array<char, 1024> buffer{};
    const ssize_t size = pread(file, buffer.data(), buffer.size(), 0);
    std::string text(buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    std::ranges::replace(text, '\n', ';');
    return text;
}

// What the child has seen; nothing if it was too slow, or is gone. A signal ends the wait, too.
std::optional<television_view> wait_for_view(int result) {
    pollfd entry = {result, POLLIN, 0};
    television_view view;
    if (poll(&entry, 1, longest_look) != 1 || read(result, &view, sizeof view) != sizeof view) {
        return std::nullopt;
    }
    return view;
}

struct port_view {
    std::optional<television_view> view;
    std::string said;
};

port_view look_in_child() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {};
    }
    const descriptor_owner result(ends[0]);
    descriptor_owner told(ends[1]);
    const descriptor_owner complaints(memfd_create("complaints", MFD_CLOEXEC));
    const pid_t child = fork();
    if (child == 0) {
        look_and_tell(told.get(), complaints.get());
    }
    told = descriptor_owner();
    if (child < 0) {
        return {};
    }
    port_view found = {wait_for_view(result.get()), ""};
    kill(child, SIGKILL);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    found.said = text_in(complaints.get());
    return found;
}

} // namespace

findings look_through_port() {
    const adapter_probe probe = probe_adapter();
    view_notes notes;
    notes.adapter = probe.name;
    television_view view;
    view.adapter = probe.state;
    if (probe.state != adapter_state::open) {
        notes.limit = "there is no adapter to ask";
        return grade_television(view, notes);
    }
    const port_view seen_there = look_in_child();
    view.adapter = adapter_state::silent;
    view = seen_there.view.value_or(view);
    notes.said = seen_there.said.empty() ? "no reason is given" : seen_there.said;
    notes.limit = view.is_unsent ? bus_too_busy : "the adapter has not answered";
    return grade_television(view, notes);
}
