#pragma once

#include "bstrlib/bstrlib.h"

/// Checks the display and the network every 30 seconds: a display that has fallen back to a low
/// mode is reset, and if eth0 has vanished while its USB controller is still present, networking is
/// restarted. All of it blocks.

/// The health tick: 30 seconds after start-up, then 30 seconds after the end of each.
void start_fb_time_timer();

/// One check. The arguments are not used.
void fb_time_fn(int fd, short event, void *arg);

/// The current HDMI mode such as "1920x1080", or null if none could be read. The caller releases
/// it.
bstring get_fb_resolution();

/// Whether it is one of the low modes that a display falls back to.
inline bool is_fallback_mode(const_bstring mode) {
    return biseqcstr(mode, "640x480") == 1 || biseqcstr(mode, "720x480") == 1;
}

/// Switches the HDMI output off and, a second later, back on in its preferred mode.
void reset_fb();

/// How many lines of the interface list name eth0; -1 if the list cannot be read.
int eth0_is_present();

/// How many lines of the USB list name the network controller's vendor; all bits set if the list
/// cannot be read, which counts as present too.
unsigned nic_is_present();

/// Runs the network's init script with "restart".
void restart_networking();
