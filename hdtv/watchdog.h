#pragma once

/// The watchdogs. The board resets itself unless the hardware watchdog is kicked; kicks come from a
/// budget, wdt_seconds, which only a gateway's message refills, and only while the unit has an
/// address and the station page is alive.

extern int wdt_fd;      ///< the hardware watchdog; negative if it could not be opened
extern int wdt_seconds; ///< kicks that are left, one a second

/// Opens the hardware watchdog and enables it.
void configure_watchdog();

/// Sets the hardware time-out, kicks once and fills the budget. Without a device it says so and
/// leaves the budget as it is.
void enable_watchdog();

/// Kicks the hardware watchdog once, whatever the budget.
void reset_watchdog();

/// Spends one kick of the budget; once a second. An empty budget kicks no more, and the board resets
/// when the hardware time-out expires.
void handle_watchdog();

/// Lets the driver stop the watchdog when its descriptor is closed (magic close). The service never
/// does: a unit that has stopped working is to be reset.
void disable_watchdog();

/// 1 while the station page keeps its liveness file fresh, or has none; 0 when it is stale.
int check_web_watchdog();

/// The web watchdog step, after every message received: fills the budget when the unit has an
/// address and the page is alive.
void refill_watchdog_budget();

/// Back to how the process starts.
void reset_watchdog_state();
