#pragma once

#include "tools/gatewayctl/messages.h"

#include <chrono>
#include <netinet/in.h>
#include <string>

/// Where a unit is and how to get a message there. Failures are run_failure.

/// "HOST" or "HOST:PORT"; without a port it is the unit's command port. A text that cannot be that is
/// a usage_failure, a name that nobody knows a run_failure.
sockaddr_in resolve(const std::string &host_and_port);

/// "10.87.33.50:4000".
std::string to_text(const sockaddr_in &address);

/// "10.87.33.50".
std::string host_text(const sockaddr_in &address);

/// Sends the whole message in one write over a connection of its own and waits until the unit has
/// closed it, that is until it has read the message.
void send_over_tcp(const sockaddr_in &unit, const message_bytes &message,
                   std::chrono::milliseconds limit);

/// Sends the message as one datagram, to a broadcast address too. Nothing tells whether it arrived.
void send_over_udp(const sockaddr_in &unit, const message_bytes &message);
