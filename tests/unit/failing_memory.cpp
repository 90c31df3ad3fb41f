#include "failing_memory.h"

#include <cstdlib>
#include <cstring>

int failing_mallocs;
int allowed_mallocs;
int failing_reallocs;
std::vector<std::size_t> realloc_sizes;
const tagbstring *watched;
tagbstring at_release;

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_realloc(void *block, std::size_t size);

void *__wrap_malloc(std::size_t size) {
    if (failing_mallocs > 0 && allowed_mallocs-- <= 0) {
        --failing_mallocs;
        return nullptr;
    }
    return __real_malloc(size);
}

void *__wrap_realloc(void *block, std::size_t size) {
    realloc_sizes.push_back(size);
    if (failing_reallocs > 0) {
        --failing_reallocs;
        return nullptr;
    }
    return __real_realloc(block, size);
}

void __real_free(void *block);
void __wrap_free(void *block) {
    if (block != nullptr && block == watched) {
        std::memcpy(&at_release, block, sizeof at_release);
    }
    __real_free(block);
}
}
