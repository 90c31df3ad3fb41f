// The service's calls that act on files, devices and any descriptor.

#include "descriptor_names.h"
#include "ledger.h"
#include "real.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <linux/kd.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string_view request_name(unsigned long request) {
    switch (request) {
    case KDSETMODE:
        return "KDSETMODE";
    case WDIOC_SETTIMEOUT:
        return "WDIOC_SETTIMEOUT";
    case SIOCGIFCONF:
        return "SIOCGIFCONF";
    case SIOCGIFADDR:
        return "SIOCGIFADDR";
    case SIOCGIFHWADDR:
        return "SIOCGIFHWADDR";
    default:
        return "of another kind";
    }
}

std::size_t half_of_what_is_there(int fd) {
    int available = 0;
    real<int(int, unsigned long, ...)>("ioctl")(fd, FIONREAD, &available);
    return static_cast<std::size_t>(available / 2);
}

} // namespace

extern "C" {

int open(const char *path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{};
    va_end(arguments);
    if (must_fail("open", path)) {
        return -1;
    }
    const int fd = real<int(const char *, int, ...)>("open")(path, flags, mode);
    name_descriptor(fd, path);
    return fd;
}

// The descriptor is closed even if close reports an error.
int close(int fd) {
    const bool fails = must_fail("close", name_of(fd));
    const int error = errno;
    const int result = real<int(int)>("close")(fd);
    if (fails) {
        errno = error;
    }
    return fails ? -1 : result;
}

ssize_t read(int fd, void *buffer, std::size_t size) {
    const int fault = fault_of("read", name_of(fd));
    if (fault > 0) {
        errno = fault;
        return -1;
    }
    const std::size_t wanted = fault == short_transfer ? half_of_what_is_there(fd) : size;
    return real<ssize_t(int, void *, std::size_t)>("read")(fd, buffer, wanted);
}

ssize_t write(int fd, const void *buffer, std::size_t size) {
    const int fault = fault_of("write", name_of(fd));
    if (fault > 0) {
        errno = fault;
        return -1;
    }
    const std::size_t wanted = fault == short_transfer ? size / 2 : size;
    return real<ssize_t(int, const void *, std::size_t)>("write")(fd, buffer, wanted);
}

int ioctl(int fd, unsigned long request, ...) {
    std::va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (must_fail("ioctl", request_name(request))) {
        return -1;
    }
    return real<int(int, unsigned long, ...)>("ioctl")(fd, request, argument);
}

int fcntl(int fd, int command, ...) {
    std::va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (must_fail("fcntl", command == F_SETFD ? "F_SETFD" : "F_GETFD")) {
        return -1;
    }
    return real<int(int, int, ...)>("fcntl")(fd, command, argument);
}

int stat(const char *path, struct stat *status) {
    return must_fail("stat", path) ? -1
                                   : real<int(const char *, struct stat *)>("stat")(path, status);
}

int unlink(const char *path) {
    return must_fail("unlink", path) ? -1 : real<int(const char *)>("unlink")(path);
}
}
