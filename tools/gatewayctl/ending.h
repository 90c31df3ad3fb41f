#pragma once

/// The end of the commands that run until they are told to end.

/// From now on SIGINT, SIGTERM and, unless it is ignored, SIGHUP ask for the end, and interrupt a wait.
/// A second one of the same kind ends the program at once.
void end_by_signals();

bool has_to_end();
