#pragma once

#include "tools/gatewayctl/descriptor_owner.h"

#include <string>

/// A socket of the internet; a run_failure where there is none to be had.
descriptor_owner open_socket(int type);

/// The same, but without a descriptor, and with errno, where there is none to be had.
descriptor_owner try_socket(int type);

/// Whether it is descriptors that there are not enough of, or what the system needs for them.
bool is_shortage(int error);

/// The system's words for an error.
std::string reason(int error);
