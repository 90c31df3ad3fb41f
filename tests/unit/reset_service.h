#pragma once

#include "hdtv/hdtv.h"

/// The service as it is when it has just been loaded.
inline void reset_service() {
    reset_alert_document_state();
    reset_alert_state();
    reset_dhcp_client_state();
    reset_first_address_state();
    reset_gateway_address_state();
    reset_gateway_records_state();
    reset_kiosk_state();
    reset_proxy_state();
    reset_watchdog_state();
}
