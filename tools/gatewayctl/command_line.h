#pragma once

#include "tools/gatewayctl/messages.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <string>

/// What the commands have in common: the options that come with each, and how to add a command.

struct common_settings {
    std::string to;
    bool over_udp = false;
    bool is_dry_run = false;
    double timeout = 0; // seconds

    channel via() const {
        return over_udp ? channel::udp : channel::tcp;
    }
};

extern common_settings common;

void add_common_options(CLI::App &app);

/// The action returns the exit status.
CLI::App &add_command(CLI::App &app, const std::string &name, const std::string &help,
                      std::function<int()> action);

/// The selected command's action; none if no command was given.
const std::function<int()> &chosen_action();

/// An option for a time, such as 2s, 500ms or 5min; it sets seconds.
void add_duration(CLI::App &command, const std::string &name, double &seconds,
                  const char *initially, const std::string &help);

std::chrono::milliseconds to_milliseconds(double seconds);
