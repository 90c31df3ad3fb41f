#pragma once

#include <initializer_list>
#include <sys/types.h>

/// Runs in the child between fork and exec, so it may use only async-signal-safe calls.
using before_exec_fn = void (*)();

/// Forks a child that executes the program at the absolute path with the given arguments (argv[0]
/// included, at most 15). A child whose exec fails exits with status 0. Returns what fork returned
/// in the parent, without waiting.
pid_t start_program(const char *path, std::initializer_list<const char *> arguments,
                    before_exec_fn before_exec = nullptr);

/// Blocks until any child has ended; its status is ignored. Returns immediately if there is no
/// child, or if one has already ended.
void wait_for_any_child();

/// start_program, then wait_for_any_child.
void run_program(const char *path, std::initializer_list<const char *> arguments);
