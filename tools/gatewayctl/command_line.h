#pragma once

#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/selection.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

/// What the commands have in common: the options that come with each, and how to add a command.

struct common_settings {
    selection_settings units;
    bool over_udp = false;
    bool is_dry_run = false;
    bool is_forced = false;
    bool as_json = false;
    double timeout = 0; // seconds
    std::size_t parallel = 32;
    int retries = 0;
    std::string failed_file; // empty: none

    channel via() const {
        return over_udp ? channel::udp : channel::tcp;
    }
};

extern common_settings common;

/// They have their defaults from the environment and from a file.
void add_common_options(CLI::App &app);

/// For an option whose value may be an empty text.
void allow_empty(const CLI::Option &option);

/// Makes all other options and arguments refuse one: mostly it is a variable of a script that is not
/// set, and would ask for all units, for 0 or for the present time. Call after all are added.
void refuse_empty_values(CLI::App &app);

/// After the command line is parsed.
void take_environment(const CLI::App &app);

/// Whether the command line itself has this common option, and not only a default. Call after
/// take_environment().
bool is_asked_for(const std::string &option);

/// The action returns the exit status.
CLI::App &add_command(CLI::App &app, const std::string &name, const std::string &help,
                      std::function<int()> action);

/// The selected command's action; none if no command was given.
const std::function<int()> &chosen_action();

/// An option for a time, such as 2s, 500ms or 5min; it sets seconds.
void add_duration(CLI::App &command, const std::string &name, double &seconds,
                  const char *initially, const std::string &help);

std::chrono::milliseconds to_milliseconds(double seconds);
