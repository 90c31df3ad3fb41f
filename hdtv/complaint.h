#pragma once

/// Says on standard error, in one line, what has failed and the reason that errno names. For faults
/// that leave a part of the service dead: standard output holds the system's own lines and no others.
void complain(const char *what);
