#pragma once

#include "tools/doctor/processes.h"

#include <cstdint>
#include <string>
#include <vector>

/// The kernel's tables of sockets, /proc/net/tcp and its like.

enum class protocol_kind { tcp, udp };

struct table_socket {
    std::uint16_t port = 0;    ///< the local one
    std::string peer;          ///< dotted, or empty if there is none or it is not IPv4
    unsigned state = 0;        ///< as the table has it
    unsigned long waiting = 0; ///< of a listening socket: connections that it has not accepted
    unsigned long inode = 0;   ///< 0: no process holds it any more
};

/// The sockets of a table's text on this local port.
std::vector<table_socket> parse_sockets(const std::string &table, std::uint16_t port);

/// Those on the port now, IPv6 included.
std::vector<table_socket> sockets_on(protocol_kind kind, std::uint16_t port);

/// Whether a server has it open: listening, or for datagrams bound.
bool is_served(protocol_kind kind, const table_socket &socket);

/// Of a port's TCP sockets: whether a connection is open, or waits to be accepted, so that a message may
/// be on its way.
bool is_message_underway(const std::vector<table_socket> &sockets);

/// Its name in a process's list of descriptors.
std::string descriptor_name(const table_socket &socket);

/// "TIME-WAIT, of a connection with 10.87.33.20", or "LISTEN, lighttpd (process 12)".
std::string describe(const table_socket &socket, const std::vector<process> &all);

/// All of them, in one line.
std::string describe(const std::vector<table_socket> &sockets, const std::vector<process> &all);
