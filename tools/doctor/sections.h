#pragma once

#include "tools/doctor/finding.h"
#include "tools/doctor/processes.h"
#include "tools/doctor/television.h"

/// The sections of the report. Each looks at its part of the chain and changes nothing.

findings look_at_service(const snapshot &taken);
findings look_at_browser(const snapshot &taken);
findings look_at_network(const snapshot &taken);
findings look_at_machine(const snapshot &taken);
