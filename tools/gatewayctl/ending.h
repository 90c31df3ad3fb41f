#pragma once

/// The end of the commands that run until they are told to end.

/// From now on SIGINT and SIGTERM ask for the end, and interrupt a wait.
void end_by_signals();

bool has_to_end();
