#pragma once

#include "tools/gatewayctl/messages.h"

/// Sends the message as the options ask, or explains it. Returns the exit status.
int send_message(const message_bytes &message);

/// A usage_failure if the options ask for UDP.
void require_tcp(const char *command);
