#pragma once

/// The exit status once everything is printed: 1, and a line on standard error, if standard output has
/// not taken all of it, and otherwise the given one.
int written_status(int status);
