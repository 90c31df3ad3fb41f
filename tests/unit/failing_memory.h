#pragma once

#include "bstrlib/bstrlib.h"

#include <cstddef>
#include <vector>

/// Memory that runs short on demand: the next `failing_mallocs` calls fail, after `allowed_mallocs`
/// ones that succeed.
extern int failing_mallocs;
extern int allowed_mallocs;
extern int failing_reallocs;
extern std::vector<std::size_t> realloc_sizes;

extern const tagbstring *watched; ///< its contents when it is released are copied to:
extern tagbstring at_release;
