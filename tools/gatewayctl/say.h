#pragma once

#include <string>

/// Prints a line with the time, and flushes it.
void say(const std::string &who, const std::string &what);
