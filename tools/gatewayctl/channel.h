#pragma once

#include "tools/gatewayctl/messages.h"

#include <chrono>
#include <netinet/in.h>

/// How to get one message to a unit. Failures are run_failure.

/// Sends the whole message in one write over a connection of its own and waits until the unit has
/// closed it, that is until it has read the message.
void send_over_tcp(const sockaddr_in &unit, const message_bytes &message,
                   std::chrono::milliseconds limit);

/// Sends the message as one datagram, to a broadcast address too. Nothing tells whether it arrived.
void send_over_udp(const sockaddr_in &unit, const message_bytes &message);
