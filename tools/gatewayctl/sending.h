#pragma once

#include "tools/gatewayctl/delivery.h"
#include "tools/gatewayctl/messages.h"

/// Sends the message to the units that the options name, or explains it. Returns the exit status: 1
/// if a unit failed, or if there is a fault in the message, which is then not sent unless --force
/// asks for it.
int send_message(const message_bytes &message);

/// The same for a message that depends on when it is sent.
int send_message(const message_fn &make);

/// A usage_failure if the options ask for UDP, unless the message is only explained.
void require_tcp(const char *command);

/// A usage_failure if the options ask for an explanation in place of what a command does for good.
void refuse_dry_run(const char *command);
