#pragma once

#include "hdtv/message.h"

/// Where a message came in. Types 46 and 52 count on TCP only, on purpose.
enum class channel { tcp, udp };

/// Does what the message asks for, by its type byte; an unknown type does nothing. Cuts the trailer
/// off an alert's text. Nothing is reported.
void dispatch_message(gateway_message &message, channel from);
