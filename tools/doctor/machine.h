#pragma once

#include "tools/doctor/finding.h"

#include <ctime>
#include <string>

/// The parts of the machine's section that need no machine.

/// A file system with this much room in bytes, of which the unit needs some.
finding grade_space(const std::string &place, unsigned long long room, unsigned long long needed);

/// The clock: what it says, and whether the kernel calls it synchronized.
finding grade_clock(std::time_t now, bool is_synchronized);

/// The sound card: whether amixer finds a control named PCM, and /proc/asound/cards.
finding grade_audio(bool has_control, const std::string &cards);

/// The root file system of a unit that runs Debian, or of an image.
finding grade_root(bool is_read_only, bool is_debian);

/// The hardware watchdog's timeout in seconds, and what the kernel calls the watchdog's state.
struct watchdog_look {
    std::string identity; ///< empty: the kernel does not tell
    long timeout;
    std::string state;
    bool is_held; ///< the service is seen to hold it
};
finding grade_watchdog_timeout(const watchdog_look &look);
