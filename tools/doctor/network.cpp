#include "hdtv/gateway_address.h"
#include "hdtv/network_identity.h"
#include "hdtv/programs.h"
#include "hdtv/protocol.h"
#include "tools/doctor/files.h"
#include "tools/doctor/sections.h"
#include "tools/doctor/sockets.h"
#include "tools/doctor/starter.h"
#include "tools/gatewayctl/descriptor_owner.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

using hardware_address = std::array<unsigned char, protocol::hardware_address_size>;

hardware_address own_hardware_address() {
    hardware_address address{};
    get_mac_address(address.data());
    return address;
}

std::string dotted(in_addr_t address) {
    const in_addr whole = {address};
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &whole, text, sizeof text);
    return text;
}

finding about_interface() {
    constexpr const char *link = wired_interface;
    if (if_nametoindex(wired_interface) == 0) {
        return has_failed(
            link, "there is no interface of this name",
            "kernel parameter net.ifnames=0; is the network controller there (lsusb)?",
            chapter::debian);
    }
    const descriptor_owner any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::memcpy(request.ifr_name, wired_interface, sizeof wired_interface);
    if (ioctl(any.get(), SIOCGIFFLAGS, &request) != 0) {
        return cannot_tell(link, "its state cannot be read");
    }
    const int flags = request.ifr_flags;
    if ((flags & IFF_UP) == 0) {
        return has_failed(link, "it is down", "bring it up: ip link set eth0 up", chapter::trouble);
    }
    if ((flags & IFF_RUNNING) == 0) {
        return has_failed(link, "it is up, but has no carrier",
                          "check the network cable, and the switch's port", chapter::trouble);
    }
    return is_ok(link, "up, with a carrier");
}

finding about_address() {
    constexpr const char *link = "address";
    const in_addr_t address = get_ip_address();
    if (address == 0) {
        return has_failed(link, "eth0 has no IPv4 address",
                          "is there a DHCP server? Until then the page says \"No Network "
                          "Connection\"",
                          chapter::trouble);
    }
    return is_ok(link, dotted(address) + " (DNS is not needed)");
}

finding about_hardware_address() {
    constexpr const char *link = "hardware address";
    const hardware_address address = own_hardware_address();
    if (address == hardware_address{}) {
        return has_failed(link, "none: the gateway cannot tell this unit from others",
                          "eth0 is missing, or has none", chapter::trouble);
    }
    return is_ok(link, hardware_address_text(address));
}

// What else might give eth0 an address, and take the service's away.
bool is_other_manager(const process &each) {
    constexpr std::string_view names[] = {"dhclient", "dhcpcd", "NetworkManager", "connmand",
                                          "systemd-network"};
    return std::ranges::find(names, each.name) != std::end(names);
}

finding about_dhcp_client(const snapshot &taken) {
    constexpr const char *link = "DHCP client";
    const auto manager = std::ranges::find_if(taken.all, is_other_manager);
    if (manager != taken.all.end()) {
        return cannot_tell(link, name_and_id(*manager) + " is running, which may manage eth0",
                           "keep eth0 out of every network manager", chapter::debian);
    }
    const auto client = std::ranges::find_if(
        taken.all, [](const process &each) { return each.name == "udhcpc" && each.state != 'Z'; });
    if (client != taken.all.end()) {
        return is_ok(link, name_and_id(*client) + " is asking for an address");
    }
    if (get_ip_address() != 0) {
        return is_ok(link, "not running, as it should be once eth0 has an address");
    }
    return has_failed(link, "not running, and eth0 has no address",
                      is_program(programs::udhcpc) ? "restart the service, which starts it"
                                                   : "install udhcpc as /sbin/udhcpc",
                      chapter::trouble);
}

std::string port_link(protocol_kind kind) {
    return (kind == protocol_kind::tcp ? "TCP port " : "UDP port ") +
           std::to_string(protocol::command_port);
}

// The sockets of the port that the service has open; nothing if this user may not see them.
std::optional<std::vector<table_socket>> held_by_service(protocol_kind kind,
                                                         const snapshot &taken) {
    const auto files =
        taken.service() != nullptr ? open_files(taken.service()->pid) : std::vector<std::string>();
    if (!files) {
        return std::nullopt;
    }
    auto sockets = sockets_on(kind, protocol::command_port);
    std::erase_if(sockets, [&](const table_socket &each) {
        return !is_served(kind, each) ||
               std::ranges::find(*files, descriptor_name(each)) == files->end();
    });
    return sockets;
}

// What retry-port looks for: a service that has only got the other port.
bool is_retried(protocol_kind kind, const snapshot &taken) {
    const auto other = held_by_service(protocol_kind::udp, taken);
    return kind == protocol_kind::tcp && other && !other->empty();
}

std::string way_to_port(protocol_kind kind, const snapshot &taken,
                        const std::vector<table_socket> &sockets) {
    if (sockets.empty()) {
        return "restart the service";
    }
    const bool is_waiting =
        std::ranges::none_of(sockets, [](const table_socket &each) { return each.inode != 0; });
    const std::string first = is_waiting ? "wait two minutes" : "end that program";
    if (is_retried(kind, taken)) {
        return first + ": retry-port restarts the service when the port is free";
    }
    return first + ", and " + (taken.service() != nullptr ? "restart" : "start") + " the service";
}

finding about_lost_port(protocol_kind kind, const snapshot &taken,
                        const std::vector<table_socket> &sockets) {
    const std::string held = sockets.empty() ? "nothing holds it" : describe(sockets, taken.all);
    if (taken.service() == nullptr && sockets.empty()) {
        return cannot_tell(port_link(kind), "the service is not running; nothing else holds it");
    }
    return has_failed(port_link(kind), "the service does not have it: " + held,
                      way_to_port(kind, taken, sockets), chapter::deaf);
}

finding about_port(protocol_kind kind, const snapshot &taken) {
    const auto sockets = sockets_on(kind, protocol::command_port);
    const auto held = held_by_service(kind, taken);
    if (!held) {
        return cannot_tell(port_link(kind),
                           "only root sees who holds it: " + describe(sockets, taken.all));
    }
    if (held->empty()) {
        return about_lost_port(kind, taken, sockets);
    }
    // Of datagrams the kernel counts bytes.
    const unsigned long waiting = kind == protocol_kind::tcp ? held->front().waiting : 0;
    return is_ok(port_link(kind),
                 "held by " + name_and_id(*taken.service()) +
                     (waiting > 0 ? ", " + std::to_string(waiting) + " not yet accepted" : ""));
}

std::string member_of(const std::string &text, const std::string &key) {
    const std::string tag = "\"" + key + "\": \"";
    const std::size_t start = text.find(tag);
    if (start == std::string::npos) {
        return "";
    }
    const std::size_t value = start + tag.size();
    return text.substr(value, text.find('"', value) - value);
}

// Asks the kernel for a way, and sends nothing: a datagram socket only notes where it would send.
bool has_route(const in_addr &gateway) {
    const descriptor_owner any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(protocol::record_port);
    to.sin_addr = gateway;
    return connect(any.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to) == 0;
}

bool is_behind_proxy(const snapshot &taken) {
    return std::ranges::any_of(taken.all, [&](const process &each) {
        return taken.service() != nullptr && each.parent == taken.service()->pid &&
               std::ranges::any_of(each.arguments, [](const std::string &argument) {
                   return argument == "-c" || argument.starts_with("--proxy-server");
               });
    });
}

// Empty unless the gateway's file was left by a former service, for nobody removes it: then how sure
// that is.
std::string sign_of_former_service(const snapshot &taken) {
    const process *service = taken.service();
    const auto is_former = service == nullptr ? true : is_from_before_start(gateway_file, *service);
    if (is_former) {
        return *is_former ? "left by a former service" : "";
    }
    return age_of(gateway_file).value_or(0) > running_time(*service) + clock_rounding
               ? "left by a former service, unless the clock has been set since"
               : "";
}

// Nothing where the clock has been set since: many boards have none of their own, and the gateway sets it.
std::string known_time(const process &service) {
    const std::time_t age = age_of(gateway_file).value_or(0);
    const bool is_likely = age >= 0 && age <= running_time(service) + clock_rounding;
    return is_likely ? " for " + duration_text(age) : "";
}

finding about_gateway(const snapshot &taken) {
    constexpr const char *link = "gateway";
    const auto text = read_file(gateway_file);
    if (!text) {
        return cannot_tell(
            link,
            is_behind_proxy(taken)
                ? "behind the station's proxy the service learns none"
                : "none known yet: no connection has come since the start (roll calls "
                  "over UDP name none)",
            "send something over TCP: gatewayctl --to UNIT stop-turnout", chapter::trouble);
    }
    const std::string address = member_of(*text, "gateway_addr");
    if (const std::string sign = sign_of_former_service(taken); !sign.empty()) {
        return cannot_tell(link, address + ", " + sign + "; none known yet");
    }
    in_addr gateway{};
    if (inet_pton(AF_INET, address.c_str(), &gateway) != 1) {
        return has_failed(link, "\"" + address + "\" is not an address",
                          "a control message has set it: gatewayctl --to UNIT set-gateway ADDRESS",
                          chapter::trouble);
    }
    if (!has_route(gateway)) {
        return has_failed(link, address + ", to which there is no route",
                          "correct eth0's network mask, or its default route", chapter::trouble);
    }
    return is_ok(link, address + ", known" + known_time(*taken.service()));
}

} // namespace

findings look_at_network(const snapshot &taken) {
    return {about_interface(),
            about_address(),
            about_hardware_address(),
            about_dhcp_client(taken),
            about_port(protocol_kind::tcp, taken),
            about_port(protocol_kind::udp, taken),
            about_gateway(taken)};
}
