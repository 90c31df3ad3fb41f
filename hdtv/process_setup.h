#pragma once

/// Sets up what the service relies on, whatever its parent process left behind. Call before
/// anything is opened.
///
/// - Standard output and standard error exist: otherwise another descriptor, above all the
///   watchdog's, would take the number of a closed one and receive every printed line. (Standard
///   input is not opened.)
/// - Every line is output immediately in one write, whether standard output is a console, a pipe or
///   a file.
/// - A reader or a peer that goes away does not end the service by SIGPIPE.
/// - Children remain until they are waited for, so SIGCHLD is not ignored.
void prepare_process();
