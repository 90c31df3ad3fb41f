#pragma once

/// The watchdogs. The board resets itself unless the hardware watchdog is kicked; kicks are spent
/// from a budget, wdt_seconds, which only a gateway's message refills, and only while the unit has
/// an address and the station page is alive.

constexpr const char *watchdog_device = "/dev/watchdog";
constexpr int watchdog_timeout = 15; ///< seconds without a kick until the board resets

/// The page touches it while it is alive.
constexpr const char *liveness_file = "/dev/shm/web_watchdog";
constexpr int staleness_limit = 300; ///< seconds until a page that has not touched it is dead

extern int wdt_fd;      ///< the hardware watchdog; negative if it could not be opened
extern int wdt_seconds; ///< remaining kicks, one per second

/// Opens the hardware watchdog and enables it.
void configure_watchdog();

/// Sets the hardware timeout, kicks once and fills the budget. Without a device it prints that and
/// leaves the budget unchanged.
void enable_watchdog();

/// Kicks the hardware watchdog once, regardless of the budget.
void reset_watchdog();

/// Spends one kick of the budget; called once a second. When the budget is empty there are no more
/// kicks, and the board resets when the hardware timeout expires.
void handle_watchdog();

/// Lets the driver stop the watchdog when its descriptor is closed (magic close). The service never
/// calls this: a unit that has stopped working must be reset.
void disable_watchdog();

/// 1 if the station page's liveness file is fresh or missing; 0 if it is stale.
int check_web_watchdog();

/// The web watchdog step, called after every received message: refills the budget if the unit has
/// an address and the page is alive.
void refill_watchdog_budget();

/// Resets this module to its initial state.
void reset_watchdog_state();
