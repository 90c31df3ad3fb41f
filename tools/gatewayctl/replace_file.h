#pragma once

#include <string>
#include <sys/types.h>

struct file_rights {
    mode_t mode = 0644; ///< anybody may read it
    uid_t user = static_cast<uid_t>(-1);
    gid_t group = static_cast<gid_t>(-1); ///< -1, of both: whoever writes the file
};

/// Replaces the file by one with this text and these rights, as far as its owner can be kept. Whoever
/// reads it meanwhile gets the old text or the new one, never a part. A run_failure if it cannot be
/// written; the old file stays.
void replace_file(const std::string &path, const std::string &text, const file_rights &rights = {});
