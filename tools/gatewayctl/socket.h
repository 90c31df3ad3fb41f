#pragma once

#include "tools/gatewayctl/descriptor_owner.h"

#include <string>

/// Opens an IPv4 socket; a run_failure if it cannot be created.
descriptor_owner open_socket(int type);

/// The same, but on failure returns an empty owner with errno set.
descriptor_owner try_socket(int type);

/// Whether the error is a shortage of descriptors, or of the resources that the system needs for
/// them.
bool is_shortage(int error);

/// The system's message for an error.
std::string reason(int error);
