#pragma once

#include "bstrlib/bstrlib.h"

/// The health of display and network, looked at every 30 seconds: a display that has fallen back to
/// a low mode is reset, and a vanished eth0 whose USB controller is still there has its network
/// restarted. All of it blocks.

/// The health tick: 30 seconds, at first and after the end of each.
void start_fb_time_timer();

/// One look. The arguments are not used.
void fb_time_fn(int fd, short event, void *arg);

/// The present HDMI mode such as "1920x1080", or null when none could be read. The caller releases
/// it.
bstring get_fb_resolution();

/// Switches the HDMI output off and, a second later, on again in its preferred mode.
void reset_fb();

/// How many lines of the interface list name eth0; -1 when the list cannot be had.
int eth0_is_present();

/// How many lines of the USB list name the network controller's vendor; all bits set when the list
/// cannot be had, which counts as present too.
unsigned nic_is_present();

/// Runs the network's init script with "restart".
void restart_networking();
