#pragma once

#include "bstrlib/bstrlib.h"

#include <netinet/in.h>

/// The alerting gateway's address, as the station page is to know it.

extern bstring current_gateway; ///< dotted IPv4 text; null until it is learnt. Written here alone

/// Takes the peer of the first connection as the gateway, publishes it and says so. Does nothing
/// once an address is known, or while the unit is behind the station's proxy.
void learn_gateway(in_addr peer);

/// Takes this text as the gateway's address, whatever was known before, publishes it with the unit's
/// hardware address in "/dev/shm/current_gateway" and says so.
void set_gateway(const char *address);

/// Back to how the process starts.
void reset_gateway_address_state();
