#pragma once

#include <string>

/// The time of this machine as a unit's `date -s` takes it whatever its time zone: "@1795238116".
std::string date_now();
