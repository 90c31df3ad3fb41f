#include "tools/doctor/sockets.h"

#include "tools/doctor/files.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <set>
#include <sstream>

namespace {

constexpr unsigned unconnected = TCP_CLOSE; // of a datagram socket that is bound

// "0100007F:0FA0", the address as the kernel holds it.
struct end_point {
    std::string address;
    std::uint16_t port = 0;
};

unsigned long parse_hex(const std::string &digits) {
    unsigned long number = 0;
    std::istringstream(digits) >> std::hex >> number;
    return number;
}

std::string dotted(const std::string &digits) {
    constexpr std::size_t ipv4_digits = 8;
    // In the IPv6 table an IPv4 peer is the last of four words.
    const std::string last = digits.substr(digits.size() - std::min(digits.size(), ipv4_digits));
    const in_addr address = {static_cast<in_addr_t>(parse_hex(last))};
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    return address.s_addr != 0 ? text : "";
}

end_point parse_end(const std::string &text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) {
        return {};
    }
    return {dotted(text.substr(0, colon)),
            static_cast<std::uint16_t>(parse_hex(text.substr(colon + 1)))};
}

std::optional<table_socket> parse_line(const std::string &line) {
    std::istringstream words(line);
    std::string number;
    std::string local;
    std::string peer;
    std::string state;
    std::string queues;
    std::string skipped;
    table_socket found;
    words >> number >> local >> peer >> state >> queues >> skipped >> skipped >> skipped >>
        skipped >> found.inode;
    if (!words) {
        return std::nullopt;
    }
    found.port = parse_end(local).port;
    found.peer = parse_end(peer).address;
    found.state = static_cast<unsigned>(parse_hex(state));
    found.waiting = parse_hex(queues.substr(queues.find(':') + 1));
    return found;
}

// As ss prints them.
std::string state_name(unsigned state) {
    constexpr const char *names[] = {
        "",      "ESTABLISHED", "SYN-SENT", "SYN-RECEIVED", "FIN-WAIT-1", "FIN-WAIT-2", "TIME-WAIT",
        "CLOSE", "CLOSE-WAIT",  "LAST-ACK", "LISTEN",       "CLOSING",    "NEW"};
    return state > 0 && state < std::size(names) ? names[state] : std::to_string(state);
}

} // namespace

std::vector<table_socket> parse_sockets(const std::string &table, std::uint16_t port) {
    std::vector<table_socket> sockets;
    std::istringstream lines(table);
    std::string line;
    std::getline(lines, line); // the heading
    while (std::getline(lines, line)) {
        const auto found = parse_line(line);
        if (found && found->port == port) {
            sockets.push_back(*found);
        }
    }
    return sockets;
}

std::vector<table_socket> sockets_on(protocol_kind kind, std::uint16_t port) {
    const std::string name = kind == protocol_kind::tcp ? "/proc/net/tcp" : "/proc/net/udp";
    auto sockets = parse_sockets(read_file(name).value_or(""), port);
    const auto more = parse_sockets(read_file(name + "6").value_or(""), port);
    sockets.insert(sockets.end(), more.begin(), more.end());
    return sockets;
}

bool is_served(protocol_kind kind, const table_socket &socket) {
    return socket.state == (kind == protocol_kind::tcp ? unsigned{TCP_LISTEN} : unconnected);
}

bool is_message_underway(const std::vector<table_socket> &sockets) {
    return std::ranges::any_of(sockets, [](const table_socket &each) {
        const bool is_open = each.state == TCP_SYN_RECV || each.state == TCP_ESTABLISHED ||
                             each.state == TCP_CLOSE_WAIT;
        return is_open || (is_served(protocol_kind::tcp, each) && each.waiting > 0);
    });
}

std::string descriptor_name(const table_socket &socket) {
    return "socket:[" + std::to_string(socket.inode) + "]";
}

std::string describe(const table_socket &socket, const std::vector<process> &all) {
    std::string text = state_name(socket.state);
    if (!socket.peer.empty()) {
        text += ", of a connection with " + socket.peer;
    }
    const auto holder = socket.inode != 0 ? holder_of(all, descriptor_name(socket)) : std::nullopt;
    return holder ? text + ", " + name_and_id(*holder) : text;
}

std::string describe(const std::vector<table_socket> &sockets, const std::vector<process> &all) {
    std::set<std::string> lines;
    for (const table_socket &each : sockets) {
        lines.insert(describe(each, all));
    }
    std::string text;
    for (const std::string &line : lines) {
        text += (text.empty() ? "" : "; ") + line;
    }
    return text;
}
