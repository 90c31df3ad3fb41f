#pragma once

#include "hdtv/messages.h"

/// Does what the message asks for, by its type byte; a type that does not count on this channel does
/// nothing. Then, whatever the type, the web watchdog step. Nothing is reported.
void dispatch_message(const gateway_message &message, channel from, const message_sender &sender);
