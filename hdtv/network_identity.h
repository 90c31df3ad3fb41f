#pragma once

#include <netinet/in.h>

/// The unit's identity on the station network: the addresses of the interface "eth0", and of no
/// other.

constexpr char wired_interface[] = "eth0";

/// Writes the 6 bytes of the hardware address to buf; zeros if there is no eth0.
void get_mac_address(unsigned char *buf);

/// The IPv4 address in network order, or 0 when eth0 has none. Of several records named "eth0"
/// among the first 8 that the kernel lists, the last one counts; aliases do not.
in_addr_t get_ip_address();
