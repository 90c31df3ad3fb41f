#include "tools/gatewayctl/ending.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t is_asked_to_end = 0;

void end_fn(int /*signal*/) {
    is_asked_to_end = 1;
}

} // namespace

void end_by_signals() {
    struct sigaction action {};
    action.sa_handler = end_fn; // without SA_RESTART, so that it also interrupts a wait
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool has_to_end() {
    return is_asked_to_end != 0;
}
