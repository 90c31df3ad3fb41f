#pragma once

#include <CLI/CLI.hpp>

/// Each adds a command, with its options and its action. A new command is a file in this folder, and
/// a line here and in commands.cpp.

void add_display_alert(CLI::App &app);
void add_detail_alert(CLI::App &app);
void add_map(CLI::App &app);
void add_stop_turnout(CLI::App &app);
void add_end_alert(CLI::App &app);
void add_turnout_timer(CLI::App &app);
void add_set_date(CLI::App &app);
void add_page(CLI::App &app);
void add_rotation(CLI::App &app);
void add_reboot(CLI::App &app);
void add_play_audio(CLI::App &app);
void add_set_gateway(CLI::App &app);
void add_raw(CLI::App &app);
void add_roll_call(CLI::App &app);
void add_serve(CLI::App &app);
void add_decode(CLI::App &app);

/// Adds all of them, in the order in which --help lists them.
void add_commands(CLI::App &app);
