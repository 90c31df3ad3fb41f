#pragma once

#include <stdexcept>

/// An invalid request: the command line is wrong, or the value does not fit into a message. Status
/// 2.
struct usage_failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The request failed. Status 1.
struct run_failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};
