// The CEC port on the board: its own host interface libraries supply the operations under these
// very names, and this file only puts the initialisation before them that they need.

#include "cec/cec_port.h"

extern "C" {

/// Prepares the libraries' threads and locks; 0 for success. Any number of calls is one.
std::int32_t vcos_init();

// The linker leads the first operation here (--wrap), by names that are the linker's own.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
std::int32_t __real_vchi_initialise(cec_instance *instance);

std::int32_t __wrap_vchi_initialise(cec_instance *instance) {
    vcos_init();
    return __real_vchi_initialise(instance);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
}
