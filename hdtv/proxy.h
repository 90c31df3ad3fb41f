#pragma once

/// The station's web proxy, which the browser uses if it answers.

extern bool use_oru_proxy; ///< whether the browser uses it; written only here

/// Whether 10.87.33.1 accepts a connection on port 3128. Blocks for the connect, for at most two
/// SYN retransmissions. Prints the result.
bool detect_proxy();

/// Sets use_oru_proxy for a unit with this dotted address: only on the gateway network, and only if
/// the proxy answers.
void choose_proxy(const char *own_address);

/// Resets this module to its initial state.
void reset_proxy_state();
