#pragma once

/// Serves one connection of the TCP command channel: one read is one message, and nothing is sent
/// back. Callback of a persistent read event on the listening socket fd; event and arg are not
/// used. Blocks until the peer sends or closes.
void connect_fn(int fd, short event, void *arg);
