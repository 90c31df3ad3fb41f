#pragma once

#include "fake_system.h"

#include <cstddef>
#include <map>
#include <net/if.h>
#include <string>

/// What the parts of the fake system share. The calls are replaced in the part that fakes them;
/// each real one is reached only while no test has started the fake system.

#define PASS_WHEN_STOPPED(name, ...)                                                               \
    if (!is_active) {                                                                              \
        return __real_##name(__VA_ARGS__);                                                         \
    }

namespace fake {

extern bool is_active;

/// What a descriptor returned by this system refers to.
struct open_file {
    std::string path; ///< empty: a socket
    std::size_t offset = 0;
    bool appends = false;
    const connection *accepted = nullptr;
};
extern std::map<int, open_file> open_files;

int new_descriptor(open_file file);

void record(const std::string &call);
bool fails(const std::string &call);
int failure(int error);

/// A request for information about interfaces.
int list_interfaces(ifconf &request);
int interface_request(unsigned long request, ifreq &record);

} // namespace fake
