#pragma once

#include "run.h"

namespace virtual_time {

struct shortest {
    history events;
    outcome result;
    int runs = 0;
};

/// The shortest history found that still ends in a violation, with its idle times cut down too.
shortest shrink(const history &failing, const outcome &result);

} // namespace virtual_time
