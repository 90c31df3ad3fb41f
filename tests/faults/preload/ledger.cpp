#include "ledger.h"

#include "site_name.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

static_assert(offsetof(ledger, now) == 32 && offsetof(ledger, wanted) == 40 &&
              offsetof(ledger, sites) == 132 && sizeof(met_site) == 96);

namespace {

constexpr const char *setting = "FAULT_LEDGER";

ledger *shared;

// The programs that the service starts get neither the library nor the ledger.
__attribute__((constructor)) void open_ledger() {
    const char *path = std::getenv(setting);
    if (path == nullptr) {
        return;
    }
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    void *map = mmap(nullptr, sizeof(ledger), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    unsetenv("LD_PRELOAD");
    unsetenv(setting);
    if (map == MAP_FAILED) {
        std::abort();
    }
    shared = static_cast<ledger *>(map);
}

// Held for a moment at a time, by the service's two threads and by its children before they exec.
class ledger_lock {
  public:
    ledger_lock() {
        while (shared->lock.exchange(1) != 0) {
            sched_yield();
        }
    }
    ~ledger_lock() {
        shared->lock = 0;
    }
    ledger_lock(const ledger_lock &) = delete;
    ledger_lock &operator=(const ledger_lock &) = delete;
};

void count(const char *name) {
    std::uint32_t i = 0;
    while (i < shared->site_count && std::strcmp(shared->sites[i].name, name) != 0) {
        ++i;
    }
    if (i == most_sites) {
        std::abort();
    }
    if (i == shared->site_count) {
        std::strcpy(shared->sites[i].name, name);
        ++shared->site_count;
    }
    ++shared->sites[i].times;
}

int take_fault(const char *name) {
    if (shared->is_armed == 0 || std::strcmp(shared->wanted, name) != 0) {
        return 0;
    }
    if (shared->to_pass > 0) {
        --shared->to_pass;
        return 0;
    }
    shared->is_armed = 0;
    shared->has_struck = 1;
    return shared->error;
}

} // namespace

ledger *shared_ledger() {
    return shared;
}

int fault_of(std::string_view function, std::string_view object) {
    if (shared == nullptr) {
        return 0;
    }
    const int kept_errno = errno;
    site_name name(function);
    name.append(object);
    int fault = 0;
    {
        const ledger_lock lock;
        count(name.text());
        fault = take_fault(name.text());
    }
    errno = kept_errno;
    return fault;
}

bool must_fail(std::string_view function, std::string_view object) {
    const int fault = fault_of(function, object);
    if (fault != 0) {
        errno = fault;
    }
    return fault != 0;
}

std::string_view thread_name() {
    return gettid() == getpid() ? std::string_view() : "of the CEC thread";
}
