#pragma once

#include <sys/types.h>

extern pid_t udhcpc_pid; ///< the DHCP client as forked; 0 before the first start

/// Kills any running DHCP client (and waits for one child to end), then starts a new one in the
/// background. Whether it finds an address shows only in get_ip_address.
void setup_dhcp_background_process();

/// Back to how the process starts.
void reset_dhcp_client_state();
