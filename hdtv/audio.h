#pragma once

#include "bstrlib/bstrlib.h"

/// Audio clips, by the outside programs amixer, wget and aplay.

/// Sets output and volume, fetches the clip at the address and plays it, all as the JSON control
/// message says. The clip's ending (".wav" or ".raw", in any case) tells its format; with any other
/// ending nothing is fetched. The wait between download and player takes any child, so the player
/// may start early: nothing is checked.
void play_audio(const_bstring address, const_bstring json);
