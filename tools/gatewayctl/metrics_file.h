#pragma once

#include <string>

/// Replaces the file by one with this text, which anybody may read. Whoever reads it meanwhile gets the
/// old text or the new one, never a part. A run_failure if it cannot be written; the old file stays.
void replace_file(const std::string &path, const std::string &text);
