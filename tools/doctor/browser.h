#pragma once

#include "tools/doctor/finding.h"
#include "tools/doctor/processes.h"

#include <ctime>
#include <optional>

/// The browser among the processes, and what it shows.
finding grade_browser(const snapshot &taken);

/// About the page's last sign of life, so many seconds ago; nothing: there was none. The service, if
/// there is one, has been running for so many seconds.
finding grade_liveness(std::optional<std::time_t> age, std::optional<long long> service_age);
