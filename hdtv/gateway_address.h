#pragma once

#include <netinet/in.h>

/// The alerting gateway's address, as the station page is to know it.

/// Takes the peer of the first connection as the gateway, publishes it and says so. Does nothing
/// once an address is known, or while the unit is behind the station's proxy.
void learn_gateway(in_addr peer);

/// Writes current_gateway and the unit's hardware address to "/dev/shm/current_gateway".
void write_gateway_file();
