#pragma once

#include <string>

/// A line with the time, at once.
void say(const std::string &who, const std::string &what);
