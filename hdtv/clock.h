#pragma once

/// The two short timers. Each callback rearms its own timer when it finishes, so blocking work
/// stretches the period, and missed ticks are not made up for.

/// The clock tick: every second.
void start_clock_timer();

/// The power tick: every 5 seconds.
void start_power_timer();

/// Restarts the browser if its process is gone, spends one kick of the watchdog's budget, and looks
/// for the unit's first address until there is one. The arguments are not used.
void clock_fn(int fd, short event, void *arg);

/// Asks the television for its power status. The arguments are not used.
void power_fn(int fd, short event, void *arg);
