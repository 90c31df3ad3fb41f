#pragma once

#include "tools/doctor/finding.h"

#include <ctime>

/// The parts of the machine's section that need no machine.

/// A file system with this much room in bytes, of which the unit needs some.
finding grade_space(const std::string &place, unsigned long long room, unsigned long long needed);

/// The clock: what it says, and whether the kernel calls it synchronized.
finding grade_clock(std::time_t now, bool is_synchronized);

/// The sound card: whether amixer finds a control named PCM, and /proc/asound/cards.
finding grade_audio(bool has_control, const std::string &cards);

/// The root file system, and the program that is to remount it.
finding grade_root(bool is_read_only, const std::string &mount_program);
