#include "tools/gatewayctl/address.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/text.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <utility>

namespace {

std::uint16_t parse_port(const std::string &text) {
    unsigned port = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port < 1 || port > 0xffff) {
        throw usage_failure(quoted(text) + " is not a port");
    }
    return static_cast<std::uint16_t>(port);
}

std::pair<std::string, std::uint16_t> split(const std::string &host_and_port) {
    const std::size_t colon = host_and_port.rfind(':');
    const std::string host = host_and_port.substr(0, colon);
    const std::uint16_t port = colon == std::string::npos
                                   ? protocol::command_port
                                   : parse_port(host_and_port.substr(colon + 1));
    if (host.empty()) {
        throw usage_failure(quoted(host_and_port) + " contains no host");
    }
    if (!is_unambiguous(host)) {
        throw usage_failure(quoted(host) +
                            " is not an IPv4 address: four numbers without leading zeros");
    }
    return {host, port};
}

sockaddr_in find_host(const std::string &host) {
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(host.c_str(), nullptr, &wanted, &found);
    if (error != 0) {
        throw run_failure("cannot resolve " + quoted(host) + ": " + gai_strerror(error));
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    return address;
}

} // namespace

bool is_unambiguous(const std::string &host) {
    in_addr address{};
    const bool is_number = host.find_first_not_of("0123456789.") == std::string::npos ||
                           inet_aton(host.c_str(), &address) != 0;
    return !is_number || inet_pton(AF_INET, host.c_str(), &address) == 1;
}

std::string with_port(const std::string &host_and_port) {
    return host_and_port.find(':') == std::string::npos
               ? host_and_port + ":" + std::to_string(protocol::command_port)
               : host_and_port;
}

void check_address(const std::string &host_and_port) {
    split(host_and_port);
}

sockaddr_in resolve(const std::string &host_and_port) {
    const auto [host, port] = split(host_and_port);
    sockaddr_in address = find_host(host);
    address.sin_port = htons(port);
    return address;
}

std::string host_text(const sockaddr_in &address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text;
}

std::string host_text(std::uint32_t address) {
    sockaddr_in whole{};
    whole.sin_addr.s_addr = htonl(address);
    return host_text(whole);
}

std::string to_text(const sockaddr_in &address) {
    return host_text(address) + ":" + std::to_string(ntohs(address.sin_port));
}
