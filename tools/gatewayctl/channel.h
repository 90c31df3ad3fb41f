#pragma once

#include "tools/gatewayctl/messages.h"

#include <chrono>
#include <netinet/in.h>

/// Sending one message to a unit. Failures are run_failure.

/// Sends the whole message in one write over a connection of its own and waits until the unit has
/// closed it, which means that it has read the message.
void send_over_tcp(const sockaddr_in &unit, const message_bytes &message,
                   std::chrono::milliseconds limit);

/// Sends the message as one datagram, possibly to a broadcast address. Delivery is not confirmed.
void send_over_udp(const sockaddr_in &unit, const message_bytes &message);
