#pragma once

/// The unit's first address on the network. Its loss or change later is not looked at, nor is the proxy
/// again.

extern bool has_ip_address; ///< eth0 has had an address; never cleared, and written here alone

/// Looks whether eth0 has an address, and with one decides whether the proxy is used. Returns the
/// dotted text, good until the next call, or null when there is none.
const char *take_first_address();

/// Back to how the process starts.
void reset_first_address_state();
