#pragma once

#include "hdtv/alert_document.h"
#include "hdtv/messages.h"

/// The alert: when it starts and ends, which units it calls, what the page shows. The caller has
/// already set the turnout timer from the message.

extern char unit_str[unit_list_size]; ///< the units of the last detail alert as JSON objects

/// Type 3. Flag 1 starts or updates an alert, or ends it when the text is empty; any other flag is
/// ignored while an alert is active and only shown while none is. Starting blocks while the television
/// wakes.
void handle_display_alert(const display_alert &alert);

/// Type 38. The timer is already set; nothing else to do.
void handle_hdtv_alert(const hdtv_alert &alert);

/// Type 51. Like the display alert, with units and turnout values. The length field alone decides
/// whether the text is empty; the text shown runs up to its zero byte. The message itself is stored
/// for a map address that may follow.
void handle_detail_alert(const detail_alert &alert, const gateway_message &datagram);

/// Type 52. Shows the last detail alert (even an ignored one) with a map, while an alert is active.
void handle_set_map_url(const set_map_address &map);

/// No units.
void clear_unit_list();

/// Resets this module to its initial state.
void reset_alert_state();
