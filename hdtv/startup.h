#pragma once

/// Runs the service: start-up, strictly in order, then the event loop for the rest of the process's
/// life. Only the first argument is examined: none runs the service, "-v" prints the version and
/// anything else is an error. Returns the exit status.
int run_service(int argc, char **argv);
