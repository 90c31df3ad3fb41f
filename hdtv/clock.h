#pragma once

/// The two short timers. Each callback arms its own timer again at its end, so work that blocks
/// stretches the period and nothing is made up for.

/// The clock tick: 1 second, at first and ever after.
void start_clock_timer();

/// The power tick: 5 seconds.
void start_power_timer();

/// Starts the browser again when its process is gone, spends a kick of the watchdog's budget, and
/// until the unit has had an address looks for the first one. The arguments are not used.
void clock_fn(int fd, short event, void *arg);

/// Asks the television for its power status. The arguments are not used.
void power_fn(int fd, short event, void *arg);
