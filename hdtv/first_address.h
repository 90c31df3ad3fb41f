#pragma once

/// The unit's first address on the network. Losing or changing it later has no effect, and the
/// proxy is not tested again.

extern bool has_ip_address; ///< eth0 has had an address; never cleared, and written only here

/// Checks whether eth0 has an address, and if so decides whether to use the proxy. Returns the
/// dotted text, valid until the next call, or null if there is none.
const char *take_first_address();

/// Resets this module to its initial state.
void reset_first_address_state();
