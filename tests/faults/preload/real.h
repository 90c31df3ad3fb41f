#pragma once

#include <dlfcn.h>

/// The function that the service would call without this library.
template <typename function> function *real(const char *name) {
    return reinterpret_cast<function *>(dlsym(RTLD_NEXT, name));
}
