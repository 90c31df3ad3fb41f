#pragma once

#include <netinet/in.h>
#include <string>

/// Which of this machine's addresses is used, to send from and to listen on: any of them unless one is
/// named, so that several gateways can share a machine.

/// From now on, this one. A usage_failure for a text that is no host, a run_failure if it cannot be
/// resolved.
void use_own_address(const std::string &host);

/// With port 0.
const sockaddr_in &own_address();

/// Before the socket connects or sends. A run_failure if the address is none of this machine's.
void bind_to_own_address(int fd);
