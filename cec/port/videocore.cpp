// The CEC port on the board: its own host interface libraries provide the operations under these
// very names; this file only adds the initialization that they need.

#include "cec/cec_port.h"

extern "C" {

/// Prepares the libraries' threads and locks; 0 for success. Only the first call does anything.
std::int32_t vcos_init();

// The linker redirects the first operation here (--wrap); the names are prescribed by the linker.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
std::int32_t __real_vchi_initialise(cec_instance *instance);

std::int32_t __wrap_vchi_initialise(cec_instance *instance) {
    vcos_init();
    return __real_vchi_initialise(instance);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
}
