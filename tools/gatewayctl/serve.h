#pragma once

#include "tools/gatewayctl/desk.h"

#include <chrono>
#include <netinet/in.h>
#include <optional>

struct serve_settings {
    desk_settings desk;
    std::optional<sockaddr_in> roll_call; ///< where to call the roll; none: nowhere
    std::chrono::milliseconds every{};    ///< how often
};

/// A small gateway: receives the units' records, answers their requests, and prints everything with
/// the time, until SIGINT or SIGTERM.
void serve(const serve_settings &settings);
