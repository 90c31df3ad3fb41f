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
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    struct sigaction before {};
    sigaction(SIGHUP, nullptr, &before);
    if (before.sa_handler != SIG_IGN) { // nohup(1) asks for that
        sigaction(SIGHUP, &action, nullptr);
    }
}

bool has_to_end() {
    return is_asked_to_end != 0;
}
