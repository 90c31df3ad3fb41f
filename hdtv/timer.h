#pragma once

#include <event.h>

/// Arms a one-shot timer for so many seconds from now. The event library may count from the moment
/// at which its loop woke up, which is long past after a callback that blocks; this compensates for
/// it. A failure is reported on standard error.
void arm_timer(event &timer, int seconds);

/// Prepares a timer with its callback and arms it for the first time.
void start_timer(event &timer, event_callback_fn callback, int seconds);
