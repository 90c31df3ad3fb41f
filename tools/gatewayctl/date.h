#pragma once

#include <string>

/// The time of this machine in a form that a unit's `date -s` accepts in any time zone:
/// "@1795238116".
std::string date_now();
