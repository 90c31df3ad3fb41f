#pragma once

#include "hdtv/message.h"

/// The alert messages: when an alert starts and ends, which units it calls, what the page shows.
/// The dispatcher has set turnout_timer before it calls.

/// Type 3. Flag 1 starts or updates an alert, or ends it when the text is empty; any other flag is
/// ignored while an alert is active and only shown while none is.
void handle_display_alert(const gateway_message &datagram);

/// Type 38. Nothing to do: the dispatcher has already taken the turnout timer.
void handle_hdtv_alert(const gateway_message &datagram);

/// Type 51. As the display alert, with units and turnout values. The length field alone decides
/// whether the text is empty; what is shown is the text up to its zero byte.
void handle_detail_alert(const gateway_message &datagram);

/// Type 52. Shows the last detail alert (an ignored one too) with a map, while an alert is active.
void handle_set_map_url(const gateway_message &datagram);
