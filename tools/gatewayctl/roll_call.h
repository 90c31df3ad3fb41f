#pragma once

#include <chrono>
#include <netinet/in.h>

/// Calls the roll at an address, a broadcast address too, listens for a while, and prints each unit
/// that has answered: as a table, or as a line of JSON each. Returns the exit status: 1 when nobody
/// has answered.
int call_roll(const sockaddr_in &to, std::chrono::milliseconds wait, bool as_json);
