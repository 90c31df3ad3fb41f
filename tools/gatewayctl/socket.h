#pragma once

#include "tools/gatewayctl/descriptor_owner.h"

#include <string>

/// A socket of the internet. Where the machine or this process has no descriptor left it fails with
/// shortage_failure, else with run_failure.
descriptor_owner open_socket(int type);

/// Whether it is descriptors that there are not enough of, or what the system needs for them.
bool is_shortage(int error);

/// The system's words for an error.
std::string reason(int error);
