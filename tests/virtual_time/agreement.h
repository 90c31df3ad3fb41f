#pragma once

#include "model.h"

namespace virtual_time {

/// Throws a violation unless the service's state, its files, descriptors and children are those of
/// the model.
void compare_state(const model_state &expected);

} // namespace virtual_time
