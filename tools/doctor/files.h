#pragma once

#include <ctime>
#include <optional>
#include <string>

/// Small looks at files. Nothing here writes, and nothing opens a device.

/// The whole file; nothing if it cannot be read. At most a few megabytes are read.
std::optional<std::string> read_file(const std::string &path);

/// Its first line without the line feed; empty if it cannot be read.
std::string first_line(const std::string &path);

bool is_there(const std::string &path);

/// Whether it is a program that root can start.
bool is_program(const std::string &path);

/// Seconds since the file was last modified, negative if that is in the future; nothing if there is
/// no such file.
std::optional<std::time_t> age_of(const std::string &path);

/// A whole number at the start of the text; nothing if there is none.
std::optional<long> number_in(const std::string &text);

/// "3 s", "5 min", "2 h", "4 days".
std::string duration_text(std::time_t seconds);

/// "17 bytes", "3 kB", "12 MB".
std::string size_text(unsigned long long bytes);
