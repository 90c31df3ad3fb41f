#pragma once

#include "tools/gatewayctl/fleet.h"

#include <chrono>
#include <string>

/// The fleet's changes in words.

/// "is there, version 47 (02:00:0a:57:21:32)". With names, units without one are unknown.
std::string change_text(const fleet_change &change, bool has_names);

/// A line of JSON, without its end.
std::string change_json(const fleet_change &change);

/// "present", "missing", "awaited" or "unknown".
const char *state_name(const fleet_unit &unit);

/// "45 s", "12 min", "5 h 10 min", "3 d 4 h".
std::string span_text(std::chrono::seconds span);

/// Between the two, and not negative where the clock was set back.
std::chrono::seconds seconds_between(wall_time from, wall_time to);

/// The local time as strftime writes it.
std::string clock_text(wall_time time, const char *format);
