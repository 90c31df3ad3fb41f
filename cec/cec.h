#pragma once

#include <cstdint>

/// Television control over HDMI-CEC: it is woken and switched to this unit for an alert, and handed
/// back afterwards. Call from the event loop's thread only.

/// How the unit announces itself on the bus.
constexpr const char *cec_osd_name = "ZELT";
constexpr std::uint32_t cec_vendor_id = 0x18C086; ///< of the board's chip vendor

/// Opens the CEC service, announces the unit and takes the television's input. Returns 0, or -1 if
/// the service cannot be opened; the other operations may still be called then.
int cec_init();

/// An alert starts: wakes the television if it is in standby, then makes the unit the active source
/// unless it already is. Blocks, with pauses of a second, for as long as the television reports
/// standby.
void cec_alert_active();

/// An alert ends: hands the screen back to the source that was active before, and puts the
/// television back into standby if it was in standby when the last alert started.
void cec_alert_inactive();

/// Asks the television for its power status. The answer arrives in the CEC callback.
void cec_poll_power_status();
