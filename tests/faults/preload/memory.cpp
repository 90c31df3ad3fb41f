// Memory that the service itself asks for, or its event library. What the C library asks for on their
// behalf is a matter of the call that needs it.

#include "ledger.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <link.h>
#include <string_view>

// The C library's own names of what this file replaces.
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);
}

namespace {

struct address_range {
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;

    bool contains(const void *address) const {
        const auto place = reinterpret_cast<std::uintptr_t>(address);
        return place >= start && place < end;
    }
};

address_range service;
address_range event_library;

address_range range_of(const dl_phdr_info &object) {
    address_range range;
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        const auto &header = object.dlpi_phdr[i];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
            range.start = object.dlpi_addr + header.p_vaddr;
            range.end = range.start + header.p_memsz;
        }
    }
    return range;
}

// The executable's own name is empty.
int look_at_object(dl_phdr_info *object, std::size_t /*size*/, void * /*data*/) {
    if (*object->dlpi_name == '\0' && service.start == 0) {
        service = range_of(*object);
    } else if (std::strstr(object->dlpi_name, "/libevent") != nullptr) {
        event_library = range_of(*object);
    }
    return 0;
}

__attribute__((constructor)) void find_callers() {
    dl_iterate_phdr(look_at_object, nullptr);
}

bool is_refused(const void *caller) {
    if (service.contains(caller)) {
        return must_fail("memory", thread_name());
    }
    return event_library.contains(caller) && must_fail("memory", "of the event library");
}

} // namespace

extern "C" {

void *malloc(std::size_t size) noexcept {
    return is_refused(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) noexcept {
    return is_refused(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *memory, std::size_t size) noexcept {
    return is_refused(__builtin_return_address(0)) ? nullptr : __libc_realloc(memory, size);
}
}
