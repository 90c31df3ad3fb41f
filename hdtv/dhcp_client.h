#pragma once

#include <sys/types.h>

extern pid_t udhcpc_pid; ///< the DHCP client as forked; 0 before the first start

/// Kills any running DHCP client (and waits for one child to end), then starts a new one in the
/// background. Use get_ip_address to find out whether it got an address.
void setup_dhcp_background_process();

/// Resets this module to its initial state.
void reset_dhcp_client_state();
