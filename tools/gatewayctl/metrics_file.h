#pragma once

#include <string>
#include <sys/types.h>

/// Replaces the file by one with this text, which anybody may read, or with this mode. Whoever reads it
/// meanwhile gets the old text or the new one, never a part. A run_failure if it cannot be written; the
/// old file stays.
void replace_file(const std::string &path, const std::string &text, mode_t mode = 0644);
