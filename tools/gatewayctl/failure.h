#pragma once

#include <stdexcept>

/// What was asked for cannot be: the command line is wrong, or no message can hold it. Status 2.
struct usage_failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What was asked for did not work. Status 1.
struct run_failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};
