#pragma once

#include "hdtv/messages.h"

/// Handles the message according to its type byte; a type that is not valid on this channel does
/// nothing. Then, whatever the type, runs the web watchdog step. Returns no result.
void dispatch_message(const gateway_message &message, channel from, const message_sender &sender);
