#pragma once

#include "bstrlib/bstrlib.h"
#include "hdtv/alert_document.h"  // IWYU pragma: export
#include "hdtv/alerts.h"          // IWYU pragma: export
#include "hdtv/dhcp_client.h"     // IWYU pragma: export
#include "hdtv/first_address.h"   // IWYU pragma: export
#include "hdtv/gateway_address.h" // IWYU pragma: export
#include "hdtv/gateway_records.h" // IWYU pragma: export
#include "hdtv/kiosk.h"           // IWYU pragma: export
#include "hdtv/proxy.h"           // IWYU pragma: export
#include "hdtv/watchdog.h"        // IWYU pragma: export

/// All of the service's module-level state, for tests and fuzzers. Each variable is declared by the
/// file that owns it, written by that file alone, and lives as long as the process. All of it
/// belongs to the one thread that runs start-up and the event callbacks.

// These names are part of the state, but nothing uses them: they are declared and never defined.
extern bool use_large_map;
extern const char *last_url_str;
extern bstring last_url_bstr;
