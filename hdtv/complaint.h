#pragma once

/// Reports on standard error, in one line, what failed and why (from errno). For faults that leave
/// a part of the service dead: standard output is reserved for the service's regular lines.
void complain(const char *what);
