#pragma once

#include "../unit/wrapped_names.h"
#include "station.h"

#include <cerrno>

/// What the replaced calls share.

#define PASS_WHEN_OFF(name, ...)                                                                   \
    if (world.is_off) {                                                                            \
        return __real_##name(__VA_ARGS__);                                                         \
    }

namespace virtual_time {

inline int failure(int error) {
    errno = error;
    return -1;
}

/// The lowest free one, or -1.
int new_descriptor(descriptor_kind what, const std::string &path = {});
/// Null if it is not open.
descriptor *find_descriptor(int fd);

/// In a child of the service, between fork and exec: what it does is told to its parent.
extern bool is_child;
void tell_parent(const std::string &what);
ssize_t receive(descriptor &socket, void *buffer, std::size_t size);
int interface_request(int fd, unsigned long request, void *argument);
long name_of_pid(const char *path);
bool is_process(int pid);

} // namespace virtual_time
