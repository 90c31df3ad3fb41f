#pragma once

#include "tools/gatewayctl/messages.h"

#include <netinet/in.h>

/// Sends the message as one datagram, possibly to a broadcast address. Delivery is not confirmed. A
/// run_failure if it cannot be sent.
void send_over_udp(const sockaddr_in &unit, const message_bytes &message);
