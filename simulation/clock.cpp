// Preloaded into the service and the programs that it starts: their clock is ahead of this machine's
// by the seconds in /run/station/clock, a 64-bit number that may change at any time. (No namespace
// holds the time of day, and the machine's own must not be touched.)
//
// A file's age stays what it is: the service holds its page's sign of life against the clock. A process
// has been running for so much longer, for whoever asks when it started.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr const char *offset_path = "/run/station/clock";

using offset_number = std::atomic<std::int64_t>;
static_assert(offset_number::is_always_lock_free && sizeof(offset_number) == sizeof(std::int64_t));

const offset_number *map_offset() {
    static const offset_number none = 0;
    const int fd = open(offset_path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return &none;
    }
    void *place = mmap(nullptr, sizeof(offset_number), PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    return place == MAP_FAILED ? &none : static_cast<const offset_number *>(place);
}

std::time_t offset() {
    static const offset_number *const place = map_offset();
    return place->load(std::memory_order_relaxed);
}

template <typename function> function *real(const char *name) {
    return reinterpret_cast<function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The C library's own parameter names are reserved.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

extern "C" int clock_gettime(clockid_t id, timespec *value) noexcept {
    static auto *const original = real<int(clockid_t, timespec *)>("clock_gettime");
    const int result = original(id, value);
    if (result == 0 && (id == CLOCK_REALTIME || id == CLOCK_REALTIME_COARSE)) {
        value->tv_sec += offset();
    } else if (result == 0 && id == CLOCK_BOOTTIME) {
        value->tv_sec +=
            std::max<std::time_t>(offset(), 0); // a clock set back makes nothing younger
    }
    return result;
}

extern "C" std::time_t time(std::time_t *value) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (value != nullptr) {
        *value = now.tv_sec;
    }
    return now.tv_sec;
}

extern "C" int gettimeofday(timeval *value, void * /*zone*/) noexcept {
    timespec now{};
    const int result = clock_gettime(CLOCK_REALTIME, &now);
    value->tv_sec = now.tv_sec;
    value->tv_usec = now.tv_nsec / 1000;
    return result;
}

extern "C" int stat(const char *path, struct stat *status) noexcept {
    static auto *const original = real<int(const char *, struct stat *)>("stat");
    const int result = original(path, status);
    if (result == 0) {
        status->st_mtim.tv_sec += offset();
    }
    return result;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
