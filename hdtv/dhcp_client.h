#pragma once

/// Kills any running DHCP client (and waits for one child to end), then starts a new one in the
/// background. Whether it finds an address shows only in get_ip_address.
void setup_dhcp_background_process();
