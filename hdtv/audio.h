#pragma once

#include "bstrlib/bstrlib.h"

/// Audio clips, using the external programs amixer, wget, and aplay.

/// Sets output and volume, fetches the clip at the address and plays it, all as the JSON control
/// message says. The clip's extension (".wav" or ".raw", in any case) determines its format; with
/// any other extension nothing is fetched. The wait between download and player accepts any child,
/// so the player may start early: nothing is checked.
void play_audio(const_bstring address, const_bstring json);
