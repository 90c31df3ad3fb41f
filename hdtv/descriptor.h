#pragma once

#include <string_view>

/// Keeps fd out of the programs that the service starts. For every descriptor that is still open
/// when a child may be forked.
void set_close_on_exec(int fd);

/// One write of the whole text. Failures and short writes are ignored, here and everywhere: there
/// is nobody to tell, and the next document replaces this one.
void write_once(int fd, std::string_view text);
