#pragma once

#include <chrono>
#include <netinet/in.h>
#include <vector>

/// Calls the roll at each address, possibly a broadcast address, listens for a while, and prints each
/// unit that answered, as a table or as one line of JSON each. Returns the exit status: 1 if no
/// unit answered.
int call_roll(const std::vector<sockaddr_in> &to, std::chrono::milliseconds wait, bool as_json);
