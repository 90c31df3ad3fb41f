#pragma once

#include <cstdint>
#include <netinet/in.h>
#include <string>

/// Where a unit is.

/// False for a number that is no complete address: 10.87.33.050 would be taken for octal, and 50 for
/// 0.0.0.50. True for any name.
bool is_unambiguous(const std::string &host);

/// With the port that it has or, without one, the unit's command port: to compare.
std::string with_port(const std::string &host_and_port);

/// A usage_failure if the text is malformed; nothing is resolved.
void check_address(const std::string &host_and_port);

/// "HOST" or "HOST:PORT"; without a port it is the unit's command port. A malformed text is a
/// usage_failure, a name that cannot be resolved a run_failure.
sockaddr_in resolve(const std::string &host_and_port);

/// "10.87.33.50:4000".
std::string to_text(const sockaddr_in &address);

/// "10.87.33.50".
std::string host_text(const sockaddr_in &address);

/// The same of a number in host byte order.
std::string host_text(std::uint32_t address);

/// As the socket calls expect it.
inline const sockaddr *generic(const sockaddr_in &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}
