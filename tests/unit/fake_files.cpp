#include "fake_calls.h"
#include "wrapped_names.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <linux/kd.h>
#include <linux/watchdog.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fake {

namespace {

ssize_t read_file(open_file &file, void *buffer, std::size_t size) {
    const auto found = state.files.find(file.path);
    if (found == state.files.end()) {
        return failure(EIO);
    }
    const std::size_t count = found->second.copy(static_cast<char *>(buffer), size, file.offset);
    file.offset += count;
    return static_cast<ssize_t>(count);
}

ssize_t write_file(open_file &file, const std::string &text) {
    std::string &content = state.files[file.path];
    if (file.appends) {
        file.offset = content.size();
    }
    content.resize(std::max(content.size(), file.offset + text.size()));
    content.replace(file.offset, text.size(), text);
    file.offset += text.size();
    return static_cast<ssize_t>(text.size());
}

} // namespace

} // namespace fake

extern "C" {
using namespace fake;

int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
    va_end(arguments);
    PASS_WHEN_STOPPED(open, path, flags, mode)
    const std::string call = std::string("open ") + path;
    record(call + " " + std::to_string(flags));
    const bool exists = state.files.contains(path);
    if (fails(call) || (!exists && (flags & O_CREAT) == 0)) {
        return failure(ENOENT);
    }
    if ((flags & O_CREAT) != 0) {
        state.opened_with_mode[path] = mode;
    }
    if (!exists || (flags & O_TRUNC) != 0) {
        state.files[path].clear();
    }
    return new_descriptor({path, 0, (flags & O_APPEND) != 0, nullptr});
}

int __real_close(int fd);
int __wrap_close(int fd) {
    PASS_WHEN_STOPPED(close, fd)
    record("close " + std::to_string(fd));
    return open_files.erase(fd) == 1 ? 0 : failure(EBADF);
}

ssize_t __real_read(int fd, void *buffer, std::size_t size);
ssize_t __wrap_read(int fd, void *buffer, std::size_t size) {
    PASS_WHEN_STOPPED(read, fd, buffer, size)
    record("read " + std::to_string(fd) + " " + std::to_string(size));
    const auto found = open_files.find(fd);
    if (found == open_files.end()) {
        return failure(EBADF);
    }
    const connection *accepted = found->second.accepted;
    if (accepted == nullptr) {
        return read_file(found->second, buffer, size);
    }
    if (accepted->read_error != 0) {
        return failure(accepted->read_error);
    }
    return static_cast<ssize_t>(accepted->data.copy(static_cast<char *>(buffer), size));
}

ssize_t __real_write(int fd, const void *data, std::size_t size);
ssize_t __wrap_write(int fd, const void *data, std::size_t size) {
    PASS_WHEN_STOPPED(write, fd, data, size)
    const std::string text(static_cast<const char *>(data), size);
    record("write " + std::to_string(fd) + " " + text);
    if (fd == STDOUT_FILENO) {
        return static_cast<ssize_t>(size);
    }
    const auto found = open_files.find(fd);
    if (found == open_files.end()) {
        return failure(EBADF);
    }
    if (found->second.path.empty()) {
        state.sent.push_back(text);
        return static_cast<ssize_t>(size);
    }
    return write_file(found->second, text);
}

int __real_stat(const char *path, struct stat *status);
int __wrap_stat(const char *path, struct stat *status) {
    PASS_WHEN_STOPPED(stat, path, status)
    const std::string call = std::string("stat ") + path;
    record(call);
    if (fails(call)) {
        return failure(EACCES);
    }
    const auto found = state.files.find(path);
    if (found == state.files.end()) {
        return failure(ENOENT);
    }
    *status = {};
    status->st_size = static_cast<off_t>(found->second.size());
    status->st_mtime = state.modified[path];
    return 0;
}

int __real_fcntl(int fd, int command, ...);
int __wrap_fcntl(int fd, int command, ...) {
    std::va_list arguments;
    va_start(arguments, command);
    const int value = va_arg(arguments, int);
    va_end(arguments);
    PASS_WHEN_STOPPED(fcntl, fd, command, value)
    if (command == F_SETFD && value == FD_CLOEXEC) {
        record("close-on-exec " + std::to_string(fd));
    }
    return 0;
}

int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
    std::va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    PASS_WHEN_STOPPED(ioctl, fd, request, argument)
    switch (request) {
    case KDSETMODE:
        record("KDSETMODE " + std::to_string(reinterpret_cast<long>(argument)));
        return 0;
    case WDIOC_SETTIMEOUT:
        record("WDIOC_SETTIMEOUT " + std::to_string(*static_cast<int *>(argument)));
        return 0;
    case SIOCGIFCONF:
        record("SIOCGIFCONF " + std::to_string(static_cast<ifconf *>(argument)->ifc_len));
        return fails("SIOCGIFCONF") ? failure(EIO)
                                    : list_interfaces(*static_cast<ifconf *>(argument));
    default:
        return interface_request(request, *static_cast<ifreq *>(argument));
    }
}

int __real_unlink(const char *path);
int __wrap_unlink(const char *path) {
    PASS_WHEN_STOPPED(unlink, path)
    record(std::string("unlink ") + path);
    return state.files.erase(path) == 1 ? 0 : failure(ENOENT);
}
}
