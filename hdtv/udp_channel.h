#pragma once

/// Serves one datagram of the UDP channel: roll calls, and most of the commands. Callback of a
/// persistent read event on the UDP socket fd; event and arg are not used. A roll call blocks for
/// its connects.
void rollcall_fn(int fd, short event, void *arg);
