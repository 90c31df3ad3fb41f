#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Other programs, and questions that may hang.

struct run_terms {
    bool is_heard = false; ///< its output goes to standard error, else to the null device
    std::optional<std::chrono::milliseconds> limit = std::nullopt; ///< until it is killed
    int lent = -1; ///< a descriptor that it has, too, and so has what it starts; -1: none
};

/// Runs a program, argv[0] first and by its absolute path, and waits for it. It has a process group of
/// its own, which Ctrl-C does not reach. Its exit status; nothing if it cannot be started or was ended
/// by a signal.
std::optional<int> run_and_wait(const std::vector<std::string> &command,
                                const run_terms &terms = {});

/// What the function returns, in a process of its own. Nothing if it has not answered within the limit;
/// it is killed then, with everything that it has started.
std::optional<std::string> ask_in_child(const std::function<std::string()> &question,
                                        std::chrono::milliseconds limit);
