#include "model.h"

#include <fcntl.h>

namespace virtual_time {

void model::check_start(const trace &acts, bool is_interrupted) {
    check(acts, is_interrupted, [&] {
        url = "http://127.0.0.1/station_web/";
        take(act::opened, "/dev/tty0");
        take(act::console);
        start_watchdog();
        start_television();
        open_channels();
        config_option("log_alerts");
        show_first_status();
        greet_gateway();
        for (const char *event : {"power", "connect", "rollcall", "clock", "fb_time"}) {
            take(act::armed, event);
        }
        read_rotation();
        restart_browser();
    });
}

void model::start_watchdog() {
    const entry &opened = take(act::opened, "/dev/watchdog");
    watchdog = opened.result;
    if (watchdog < 0) {
        print("Can't open /dev/watchdog\n");
        return;
    }
    ++descriptors;
    if (take(act::timeout).number != 15) {
        throw violation("the watchdog's time is not 15 s");
    }
    kick();
}

void model::start_television() {
    if (take(act::cec, "initialise").result != 0) {
        return print("failed to open vchiq instance\n");
    }
    if (take(act::cec, "connect").result != 0) {
        return print("VCHI connection failed\n");
    }
    for (const char *call : {"start", "register callback", "deregister", "register 82",
                             "register 90", "register 80"}) {
        take(act::cec, call);
    }
    print("logical_address: 0x4\n");
    take(act::cec, "vendor 18C086");
    take(act::cec, "name ZELT");
    print("physical_address: 0x1000\n");
    own = source = 0x1000;
    take(act::cec, "send 0: 8F");
    take(act::cec, "active source 1000");
}

void model::open_channels() {
    for (const char *type : {"tcp", "udp"}) {
        take_socket(type);
        take(act::bound, "0.0.0.0:4000");
        ++descriptors;
    }
}

void model::show_first_status() {
    const std::string address = own_address();
    if (address.empty()) {
        write_document({.type = "display_alert", .area = "No Network Connection"});
        run_program({"/usr/bin/killall", "killall", "-9", "udhcpc"});
        start_program({"/sbin/udhcpc", "udhcpc", "-t", "30", "-A", "30", "-q"});
        return;
    }
    has_address = true;
    choose_proxy(address);
    write_document({.type = "display_alert", .area = address});
}

void model::greet_gateway() {
    const auto configured = config_option("comm_gw");
    if (!configured) {
        return;
    }
    print("Extracted comm_gw: " + *configured + ", sending gratuitous rollcall reply\n");
    const std::string hardware = hardware_address();
    take_socket("tcp");
    const bool is_address = configured->find_first_not_of("0123456789.") == std::string::npos;
    const std::string to = is_address ? *configured : "0.0.0.0";
    if (take(act::connected, to + ":5000").result >= 0) {
        take(act::sent, "\x02" + hardware + "\x0C\x2F");
    }
}

void model::read_rotation() {
    const auto value = config_option("rotation");
    if (value) {
        rotation = *value == "90" ? 90 : *value == "180" ? 180 : *value == "270" ? 270 : 0;
    }
}

} // namespace virtual_time
