#pragma once

#include <chrono>
#include <netinet/in.h>
#include <optional>

struct serve_settings {
    int rotation = 0;                     ///< degrees, sent to who asks for its settings
    std::optional<sockaddr_in> roll_call; ///< where to call the roll; none: nowhere
    std::chrono::milliseconds every{};    ///< how often
    std::chrono::milliseconds timeout{};  ///< for a unit to take an answer
};

/// A small gateway: takes the units' records, answers their requests, and prints all of it with the
/// time, until SIGINT or SIGTERM.
void serve(const serve_settings &settings);
