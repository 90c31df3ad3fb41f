#include "hdtv/startup.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "cec/cec.h"
#include "hdtv/alert_document.h"
#include "hdtv/clock.h"
#include "hdtv/complaint.h"
#include "hdtv/config_store.h"
#include "hdtv/connect.h"
#include "hdtv/descriptor.h"
#include "hdtv/dhcp_client.h"
#include "hdtv/gateway_records.h"
#include "hdtv/hdtv.h"
#include "hdtv/health.h"
#include "hdtv/kiosk.h"
#include "hdtv/network_identity.h"
#include "hdtv/process_setup.h"
#include "hdtv/protocol.h"
#include "hdtv/proxy.h"
#include "hdtv/rollcall.h"
#include "hdtv/watchdog.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <event.h>
#include <fcntl.h>
#include <iterator>
#include <linux/kd.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <tuple>
#include <unistd.h>

namespace {

event connect_event;
event rollcall_event;

int handle_option(const char *option) {
    if (std::strcmp(option, "-v") == 0) {
        std::printf("PERIPHERAL_VERSION: %d\n", protocol::version);
        return 0;
    }
    std::printf("Error: Unrecognized Option \"%s\"\n", option);
    return 1;
}

bool set_console_to_text_mode() {
    const int fd = open("/dev/tty0", O_RDONLY);
    if (fd < 0) {
        std::printf("Can't open console");
        return false;
    }
    std::ignore = ioctl(fd, KDSETMODE, KD_TEXT);
    close(fd);
    return true;
}

sockaddr_in any_address(std::uint16_t port) {
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(port);
    sa.sin_addr.s_addr = htonl(INADDR_ANY);
    return sa;
}

// A channel that cannot be opened stays dead; the service serves the other one.
int open_bound_socket(int type, const sockaddr_in &sa) {
    const bool is_tcp = type == SOCK_STREAM;
    const int fd = socket(AF_INET, type, 0);
    if (fd < 0) {
        complain(is_tcp ? "cannot create the TCP socket" : "cannot create the UDP socket");
    }
    set_close_on_exec(fd);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&sa), sizeof sa) < 0 && fd >= 0) {
        complain(is_tcp ? "cannot bind TCP port 4000" : "cannot bind UDP port 4000");
    }
    return fd;
}

int open_command_socket(const sockaddr_in &sa) {
    const int fd = open_bound_socket(SOCK_STREAM, sa);
    if (listen(fd, 0) < 0 && fd >= 0) {
        complain("cannot listen on TCP port 4000");
    }
    return fd;
}

// Logging is on from the start, so the key changes nothing: it can only switch on what is on.
void read_log_alerts() {
    // Never released: a few bytes at start-up, known and kept.
    bstring value = get_config_option(config_file, "log_alerts");
    if (biseqcstrcaseless(value, "true") == 1) {
        log_alerts = true;
    }
}

void publish_first_status() {
    in_addr ip{};
    ip.s_addr = get_ip_address();
    const bstr_owner text(bfromcstr(inet_ntoa(ip)));
    if (biseqcstr(text.get(), "0.0.0.0") == 1) {
        write_status_document("No Network Connection");
        setup_dhcp_background_process();
        return;
    }
    has_ip_address = true;
    choose_proxy(bstr_text(text.get()));
    write_status_document(bstr_text(text.get()));
}

// Unasked, so that the gateway learns of the unit after a restart. `sa` is the address of the
// sockets: a comm_gw that cannot be parsed leaves its 0.0.0.0 in place.
void send_gratuitous_rollcall_reply(sockaddr_in sa) {
    const bstr_owner comm_gw(get_config_option(config_file, "comm_gw"));
    if (!comm_gw) {
        return;
    }
    const char *address = bstr_text(comm_gw.get());
    std::printf("Extracted comm_gw: %s, sending gratuitous rollcall reply\n", address);
    const rollcall_reply_record datagram = make_rollcall_reply();
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    std::ignore = inet_pton(AF_INET, address, &sa.sin_addr);
    sa.sin_port = htons(protocol::record_port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&sa), sizeof sa) >= 0) {
        std::ignore = write(fd, datagram.data(), datagram.size());
    }
    close(fd);
}

void register_reader(event &reader, int fd, event_callback_fn callback, const char *failure) {
    event_set(&reader, fd, EV_READ | EV_PERSIST, callback, nullptr);
    if (event_add(&reader, nullptr) < 0) {
        complain(failure);
    }
}

void register_events(int command_socket, int rollcall_socket) {
    start_power_timer();
    register_reader(connect_event, command_socket, connect_fn, "cannot watch the TCP channel");
    register_reader(rollcall_event, rollcall_socket, rollcall_fn, "cannot watch the UDP channel");
    start_clock_timer();
    start_fb_time_timer();
}

void read_rotation() {
    const bstr_owner value(get_config_option(config_file, "rotation"));
    if (!value) {
        return;
    }
    rotation = 0;
    for (const auto &[text, degrees] : rotation_settings) {
        if (biseqcstr(value.get(), text) == 1) {
            rotation = degrees;
        }
    }
}

} // namespace

int run_service(int argc, char **argv) {
    if (argc > 1) {
        return handle_option(argv[1]);
    }
    prepare_process();
    url = bfromcstr(station_page);
    if (!set_console_to_text_mode()) {
        return 1;
    }
    configure_watchdog();
    event_init();
    std::ignore = cec_init();
    const sockaddr_in sa = any_address(protocol::command_port);
    const int command_socket = open_command_socket(sa);
    const int rollcall_socket = open_bound_socket(SOCK_DGRAM, sa);
    std::fill(std::begin(unit_str), std::end(unit_str), '\0');
    read_log_alerts();
    publish_first_status();
    send_gratuitous_rollcall_reply(sa);
    register_events(command_socket, rollcall_socket);
    read_rotation();
    set_url_w_rotation(url);
    if (event_dispatch() < 0) {
        complain("the event loop has ended");
    }
    return 0;
}
