#pragma once

#include "tools/gatewayctl/fleet.h"

#include <chrono>
#include <cstddef>
#include <string>

/// The fleet's table on a terminal.

struct table_frame {
    std::size_t rows = 24;
    std::size_t columns = 80;
    wall_time now;
    std::chrono::seconds until_call{}; ///< until the next roll call
    std::string notice;                ///< what went wrong lately; empty: nothing
};

/// The table as it fits the frame, in lines that end in "\n": a line that sums up, headings, and the
/// units, those that are missing first. The last line tells how many others there are.
std::string table_text(const fleet &units, const table_frame &frame);
