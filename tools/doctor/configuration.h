#pragma once

#include "tools/doctor/finding.h"

#include <optional>
#include <string>

/// What the unit's configuration says, and what of it the service does not see.

/// The findings about a configuration file.
findings look_at_configuration(const std::string &file);
