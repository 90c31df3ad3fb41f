#pragma once

/// What the service counts on, whatever its starter has left behind. Before anything is opened.
///
/// - Standard output and standard error exist: a descriptor that takes the place of one that was closed,
///   the watchdog's above all, would receive every printed line. (Standard input is not filled.)
/// - Every line leaves in one write and at once, whether standard output is a console, a pipe or a file.
/// - A reader or a peer that goes away does not end the service by SIGPIPE.
/// - Children stay until they are waited for, so SIGCHLD is not ignored.
void prepare_process();
