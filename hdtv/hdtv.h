#pragma once

#include "bstrlib/bstrlib.h"

#include <sys/types.h>

/// The module-level state that the files of the service share. Each variable is defined in the file
/// that owns it and lives as long as the process. All of it belongs to the one thread that runs
/// start-up and the event callbacks.

// alert_document.cpp
extern int turnout_timer; ///< seconds, initially 120; set by the dispatcher from alert messages
extern bool log_alerts;   ///< initially true, and nothing ever clears it

// alerts.cpp
extern char unit_str[4096]; ///< the units of the last detail alert as JSON objects, zero-terminated

// dhcp_client.cpp
extern pid_t udhcpc_pid; ///< the DHCP client as forked; 0 before the first start

// dispatch.cpp
extern bool got_set_date_packet;      ///< a set-date message has arrived; never cleared
extern bool got_hdtv_settings_packet; ///< an hdtv-settings message has arrived; never cleared

// gateway_address.cpp
extern bstring
    current_gateway; ///< dotted IPv4 text; null until it is learnt. Replaced by destroying

// kiosk.cpp
extern bstring url;        ///< the page address without the rotation suffix; null: none
extern int rotation;       ///< degrees
extern int kiosk_pid;      ///< as the last fork returned it; 0 before the first start, never reset
extern bool use_oru_proxy; ///< the browser is to use the station's proxy

// network_identity.cpp
extern bool has_ip_address; ///< eth0 has had an address; never cleared

// watchdog.cpp
extern int wdt_fd;      ///< the hardware watchdog; negative if it could not be opened
extern int wdt_seconds; ///< kicks that are left, one a second

// These names belong to the module's state and nothing uses them: they are declared, and never defined.
extern bool use_large_map;
extern const char *last_url_str;
extern bstring last_url_bstr;
