#pragma once

/// The station's web proxy, which the browser uses where it answers.

extern bool use_oru_proxy; ///< the browser is to use it; written here alone

/// Whether 10.87.33.1 accepts a connection on port 3128. Blocks for the connect, at most for two
/// SYN retransmissions. Prints what it found.
bool detect_proxy();

/// Sets use_oru_proxy for a unit with this dotted address: only on the gateway network, and only
/// when the proxy answers.
void choose_proxy(const char *own_address);

/// Back to how the process starts.
void reset_proxy_state();
