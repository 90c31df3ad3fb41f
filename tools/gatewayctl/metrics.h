#pragma once

#include "tools/gatewayctl/fleet.h"

#include <chrono>
#include <cstdint>
#include <string>

/// What is counted beside the table.
struct watch_counts {
    std::uint64_t calls = 0;           ///< roll calls sent
    std::uint64_t failed_calls = 0;    ///< roll calls that could not be sent
    std::uint64_t invalid_records = 0; ///< records that could not be read
};

/// Everything in the text format of Prometheus, which its scrapes and the node exporter's text files
/// share.
std::string metrics_text(const fleet &units, const watch_counts &counts,
                         std::chrono::milliseconds every);
