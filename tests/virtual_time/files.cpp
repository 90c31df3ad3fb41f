#include "calls.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/kd.h>
#include <linux/watchdog.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace virtual_time {

namespace {

constexpr std::int64_t touch_period = 30 * second;
constexpr std::int64_t watchdog_timeout = 15 * second;
constexpr std::string_view liveness_path = "/dev/shm/web_watchdog";
constexpr std::string_view proc = "/proc/";

bool is_full(std::string_view path) {
    const int disk = path.starts_with("/tmp/") ? 1 : path.starts_with("/dev/shm/") ? 2 : 4;
    return (world.full_disks & disk) != 0;
}

int opening_error(const std::string &path, int flags) {
    const bool is_device = path.starts_with("/dev/") && !path.starts_with("/dev/shm/");
    if (path == "/dev/watchdog") {
        return world.is_watchdog_missing ? ENOENT : 0;
    }
    if (is_device) {
        return 0;
    }
    if (!world.files.contains(path) && (flags & O_CREAT) == 0) {
        return ENOENT;
    }
    const bool is_on_root = path.starts_with("/var/");
    return is_on_root && (flags & O_ACCMODE) != O_RDONLY && !world.is_root_writable ? EROFS : 0;
}

int open_file(const std::string &path, int flags) {
    const int error = opening_error(path, flags);
    if (error != 0) {
        return failure(error);
    }
    const bool is_watchdog = path == "/dev/watchdog";
    const int fd =
        new_descriptor(is_watchdog ? descriptor_kind::watchdog : descriptor_kind::file, path);
    if (fd >= 0 && (flags & (O_CREAT | O_TRUNC)) != 0) {
        std::string &content = world.files[path];
        if ((flags & O_TRUNC) != 0) {
            content.clear();
        }
    }
    return fd;
}

ssize_t read_file(descriptor &file, void *buffer, std::size_t size) {
    const std::string &content = world.files[file.path];
    const std::size_t count = content.copy(static_cast<char *>(buffer), size, file.offset);
    file.offset += count;
    world.acts.add(act::read, {static_cast<char *>(buffer), count}, 0, static_cast<long>(count));
    return static_cast<ssize_t>(count);
}

void kick(std::string_view text) {
    world.acts.add(act::kicked, text);
    world.reset_at = world.now + watchdog_timeout;
}

ssize_t write_file(descriptor &file, std::string_view text) {
    const bool fails = is_full(file.path);
    const auto result = fails ? -1 : static_cast<long>(text.size());
    world.acts.add(act::written, text, 0, result);
    if (fails) {
        return failure(ENOSPC);
    }
    // The log would only grow.
    if (file.path != "/tmp/alerts.log") {
        std::string &content = world.files[file.path];
        content.resize(std::max(content.size(), file.offset + text.size()));
        content.replace(file.offset, text.size(), text);
    }
    file.offset += text.size();
    return result;
}

int look(const char *path, struct stat *status) {
    const std::string_view name = path;
    *status = {};
    if (name.starts_with(proc)) {
        const int result = is_process(std::atoi(path + proc.size())) ? 0 : -1;
        world.acts.add(act::looked, name, 0, result);
        return result == 0 ? 0 : failure(ENOENT);
    }
    if (name == liveness_path) {
        touch_page();
        status->st_mtime = static_cast<time_t>(world.page.modified);
        const int result = world.page.exists ? 0 : -1;
        world.acts.add(act::looked, name, static_cast<long>(world.page.modified), result);
        return result == 0 ? 0 : failure(ENOENT);
    }
    const auto found = world.files.find(path);
    const bool exists = found != world.files.end();
    status->st_size = exists ? static_cast<off_t>(found->second.size()) : 0;
    world.acts.add(act::looked, name, static_cast<long>(status->st_size), exists ? 0 : -1);
    return exists ? 0 : failure(ENOENT);
}

} // namespace

int new_descriptor(descriptor_kind what, const std::string &path) {
    auto &all = world.descriptors;
    const auto free = std::find_if(all.begin(), all.end(), [](const descriptor &d) {
        return d.what == descriptor_kind::none;
    });
    if (world.has_no_descriptors || free == all.end()) {
        return failure(EMFILE);
    }
    *free = {what, path, 0, {}};
    ++world.open_descriptors;
    return static_cast<int>(free - all.begin());
}

descriptor *find_descriptor(int fd) {
    if (fd < 0 || fd >= static_cast<int>(descriptor_limit)) {
        return nullptr;
    }
    descriptor &found = world.descriptors[static_cast<std::size_t>(fd)];
    return found.what == descriptor_kind::none ? nullptr : &found;
}

// The page touches its file while it lives; written down only when somebody looks.
void touch_page() {
    liveness &page = world.page;
    if (page.hangs || page.next_touch > world.now) {
        return;
    }
    const std::int64_t last =
        page.next_touch + (world.now - page.next_touch) / touch_period * touch_period;
    page.exists = true;
    page.modified = (last + world.offset) / second;
    page.next_touch = last + touch_period;
}

void start_page() {
    world.page.next_touch = world.now + 10 * second;
}

void stop_page() {
    touch_page();
    world.page.next_touch = never;
}

} // namespace virtual_time

extern "C" {
using namespace virtual_time;

int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
    va_end(arguments);
    PASS_WHEN_OFF(open, path, flags, mode)
    const int fd = open_file(path, flags);
    const int error = errno;
    std::string text = path;
    if ((flags & O_CREAT) != 0) {
        text += mode == 0777 ? " 0777" : " with another mode";
    }
    world.acts.add(act::opened, text, flags, fd);
    errno = error;
    return fd;
}

int __real_close(int fd);
int __wrap_close(int fd) {
    PASS_WHEN_OFF(close, fd)
    descriptor *found = find_descriptor(fd);
    if (found == nullptr) {
        // The descriptor of an open that failed is closed too.
        if (fd >= 0) {
            world.acts.add(act::dead_close, "", fd);
        }
        return failure(EBADF);
    }
    found->what = descriptor_kind::none;
    --world.open_descriptors;
    return 0;
}

ssize_t __real_read(int fd, void *buffer, std::size_t size);
ssize_t __wrap_read(int fd, void *buffer, std::size_t size) {
    PASS_WHEN_OFF(read, fd, buffer, size)
    descriptor *found = find_descriptor(fd);
    if (found == nullptr) {
        return failure(EBADF);
    }
    return found->what == descriptor_kind::accepted ? receive(*found, buffer, size)
                                                    : read_file(*found, buffer, size);
}

ssize_t __real_write(int fd, const void *data, std::size_t size);
ssize_t __wrap_write(int fd, const void *data, std::size_t size) {
    PASS_WHEN_OFF(write, fd, data, size)
    const std::string_view text(static_cast<const char *>(data), size);
    if (is_child) {
        tell_parent("write " + std::to_string(fd) + " " + std::string(text));
        return static_cast<ssize_t>(size);
    }
    descriptor *found = find_descriptor(fd);
    if (found == nullptr) {
        return failure(EBADF);
    }
    switch (found->what) {
    case descriptor_kind::watchdog:
        kick(text);
        return static_cast<ssize_t>(size);
    case descriptor_kind::file:
        return write_file(*found, text);
    default:
        world.acts.add(act::sent, text);
        ++world.counts.records;
        return static_cast<ssize_t>(size);
    }
}

int __real_stat(const char *path, struct stat *status);
int __wrap_stat(const char *path, struct stat *status) {
    PASS_WHEN_OFF(stat, path, status)
    return look(path, status);
}

int __real_fcntl(int fd, int command, ...);
int __wrap_fcntl(int fd, int command, ...) {
    std::va_list arguments;
    va_start(arguments, command);
    const int value = va_arg(arguments, int);
    va_end(arguments);
    PASS_WHEN_OFF(fcntl, fd, command, value)
    return find_descriptor(fd) != nullptr ? 0 : failure(EBADF);
}

int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
    std::va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    PASS_WHEN_OFF(ioctl, fd, request, argument)
    switch (request) {
    case KDSETMODE:
        world.acts.add(act::console, "",
                       static_cast<long>(reinterpret_cast<std::intptr_t>(argument)));
        return 0;
    case WDIOC_SETTIMEOUT:
        world.acts.add(act::timeout, "", *static_cast<int *>(argument));
        return 0;
    default:
        return interface_request(fd, request, argument);
    }
}

int __real_unlink(const char *path);
int __wrap_unlink(const char *path) {
    PASS_WHEN_OFF(unlink, path)
    world.acts.add(act::removed, path);
    return failure(ENOENT);
}
}
