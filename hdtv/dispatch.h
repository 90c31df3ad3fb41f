#pragma once

#include "hdtv/message.h"

/// Where a message came in. Types 46 and 52 count on TCP only and type 1 on UDP only, on purpose.
enum class channel { tcp, udp };

/// Does what the message asks for, by its type byte; an unknown type does nothing. Then, whatever
/// the type, the web watchdog step. Cuts the trailer off an alert's text. Nothing is reported.
void dispatch_message(gateway_message &message, channel from, const message_sender &sender);
