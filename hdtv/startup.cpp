#include "hdtv/startup.h"

#include "cec/cec.h"
#include "hdtv/alert_document.h"
#include "hdtv/alerts.h"
#include "hdtv/clock.h"
#include "hdtv/complaint.h"
#include "hdtv/descriptor.h"
#include "hdtv/dhcp_client.h"
#include "hdtv/first_address.h"
#include "hdtv/gateway_records.h"
#include "hdtv/health.h"
#include "hdtv/kiosk.h"
#include "hdtv/process_setup.h"
#include "hdtv/protocol.h"
#include "hdtv/tcp_channel.h"
#include "hdtv/udp_channel.h"
#include "hdtv/watchdog.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <event.h>
#include <fcntl.h>
#include <linux/kd.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
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
    ioctl(fd, KDSETMODE, KD_TEXT);
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

// A channel that cannot be opened stays dead; the other one still works.
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

void publish_first_status() {
    const char *address = take_first_address();
    if (address == nullptr) {
        write_status_document("No Network Connection");
        setup_dhcp_background_process();
        return;
    }
    write_status_document(address);
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

} // namespace

int run_service(int argc, char **argv) {
    if (argc > 1) {
        return handle_option(argv[1]);
    }
    prepare_process();
    choose_station_page();
    if (!set_console_to_text_mode()) {
        return 1;
    }
    configure_watchdog();
    event_init();
    cec_init();
    const sockaddr_in sa = any_address(protocol::command_port);
    const int command_socket = open_command_socket(sa);
    const int rollcall_socket = open_bound_socket(SOCK_DGRAM, sa);
    clear_unit_list();
    read_log_alerts();
    publish_first_status();
    send_gratuitous_rollcall_reply();
    register_events(command_socket, rollcall_socket);
    read_rotation();
    restart_browser();
    if (event_dispatch() < 0) {
        complain("the event loop has ended");
    }
    return 0;
}
