#pragma once

#include <optional>
#include <string>
#include <vector>

/// Runs a program, argv[0] first and by its absolute path, and waits for it. Its output goes to the
/// null device, or to standard error if it is to be heard. Its exit status; nothing if it cannot be
/// started or was ended by a signal.
std::optional<int> run_and_wait(const std::vector<std::string> &command, bool is_heard = false);
