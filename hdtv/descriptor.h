#pragma once

#include <string_view>

/// Keeps the programs that the service starts from inheriting fd. Use it for every descriptor that
/// may be open during a fork.
void set_close_on_exec(int fd);

/// One write of the whole text. Failures and short writes are ignored, here and everywhere: there
/// is no one to report them to, and the next document replaces this one.
void write_once(int fd, std::string_view text);
