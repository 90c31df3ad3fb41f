#pragma once

#include "bstrlib/bstrlib.h"

#include <netinet/in.h>

/// The alerting gateway's address, as published for the station page.

constexpr const char *gateway_file = "/dev/shm/current_gateway";

extern bstring current_gateway; ///< dotted IPv4 text; null until it is known. Written only here

/// Takes the peer of the first connection as the gateway, publishes it and prints it. Does nothing
/// if an address is already known, or while the unit is behind the station's proxy.
void learn_gateway(in_addr peer);

/// Sets the gateway's address, replacing any known one, publishes it with the unit's hardware
/// address in "/dev/shm/current_gateway" and prints it.
void set_gateway(const char *address);

/// Resets this module to its initial state.
void reset_gateway_address_state();
