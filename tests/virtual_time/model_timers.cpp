#include "model.h"

#include <cstring>

namespace virtual_time {

namespace {

// Of the last line that has one, in the display tool's answer.
std::string mode_of(const std::string &answer) {
    std::string mode;
    for (std::size_t start = 0; start < answer.size();) {
        const std::size_t end = std::min(answer.find('\n', start), answer.size());
        const std::string line = answer.substr(start, end - start);
        start = end + 1;
        const std::size_t marker = line.find("state 0x");
        const std::size_t comma = marker == std::string::npos ? marker : line.find(", ", marker);
        const std::size_t blank = comma == std::string::npos ? comma : line.find(' ', comma + 2);
        if (blank != std::string::npos && blank > comma + 2 && blank - comma - 2 <= 10) {
            mode = line.substr(comma + 2, blank - comma - 2);
        }
    }
    return mode;
}

std::string output_of(const entry &asked) {
    return asked.text.substr(asked.text.find('\n') + 1);
}

} // namespace

void model::check_clock(const trace &acts, bool is_interrupted) {
    check(acts, is_interrupted, [&] {
        if (url && browser > 0) {
            const entry &looked = take(act::looked);
            if (looked.text.compare(0, 6, "/proc/") != 0 ||
                std::stol(looked.text.substr(6)) != browser) {
                throw violation("the browser is not looked for, but " + looked.text);
            }
            if (looked.result != 0) {
                restart_browser();
            }
        }
        if (budget > 0) {
            kick();
            --budget;
        }
        if (!has_address) {
            const std::string address = own_address();
            if (!address.empty()) {
                has_address = true;
                choose_proxy(address);
                restart_browser();
                write_document({.type = "display_alert", .area = address});
            }
        }
        if (take(act::armed, "clock").number != 1) {
            throw violation("the clock's period is not 1 s");
        }
    });
}

void model::check_power(const trace &acts, bool is_interrupted) {
    check(acts, is_interrupted, [&] {
        take(act::cec, "send 0: 8F");
        if (take(act::armed, "power").number != 5) {
            throw violation("the power poll's period is not 5 s");
        }
    });
}

void model::check_health(const trace &acts, bool is_interrupted) {
    check(acts, is_interrupted, [&] {
        const entry &asked = take(act::asked);
        const std::string mode = asked.result == 0 ? mode_of(output_of(asked)) : "";
        if (!mode.empty()) {
            print("Current Output Resolution: \"" + mode + "\"\n");
        }
        if (mode == "640x480" || mode == "720x480") {
            reset_display();
        }
        check_network();
        if (take(act::armed, "fb_time").number != 30) {
            throw violation("the health check's period is not 30 s");
        }
    });
}

void model::reset_display() {
    run_program({"/usr/bin/tvservice", "tvservice", "-o"});
    sleep(1);
    run_program({"/usr/bin/tvservice", "tvservice", "-p"});
    if (url) {
        sleep(2);
        restart_browser();
    }
}

void model::check_network() {
    const entry &interfaces = take(act::asked);
    if (interfaces.result != 0 || output_of(interfaces).find("eth0") != std::string::npos) {
        return;
    }
    print("eth0 is missing\n");
    const entry &usb = take(act::asked);
    if (usb.result != 0 || output_of(usb).find("0424:") != std::string::npos) {
        print("USB NIC is present, restarting networking\n");
        run_program({"/etc/init.d/S40network", "S40network", "restart"});
    }
}

void model::check_idle(const trace &acts, bool is_interrupted) {
    check(acts, is_interrupted, [] {});
}

void model::hear(const entry &notification) {
    const std::string bytes = notification.text + std::string(16, '\0');
    const bool is_received = notification.number == 2;
    std::string line = format("%s: %X -> %X:", is_received ? "RX" : "TX", byte_at(bytes, 0) >> 4,
                              byte_at(bytes, 0) & 15);
    for (std::size_t i = 1; i < notification.text.size(); ++i) {
        line += format(" %02X", byte_at(bytes, i));
    }
    print(line + "\n");
    const int opcode = is_received ? byte_at(bytes, 1) : 0;
    if (opcode == 0x80 || opcode == 0x82) {
        source = opcode == 0x80 ? number_at(bytes, 4) : byte_at(bytes, 2);
        print(format("active source now: %04X\n", source));
    } else if (opcode == 0x85) {
        take(act::cec, format("active source %04X", own));
    } else if (opcode == 0x90) {
        is_standby = byte_at(bytes, 2) == 1;
        print(is_standby ? "TV is in standby mode.\n" : "TV is NOT in standby mode.\n");
    }
}

void model::lose_television() {
    is_lost = true;
}

void model::wake_television() {
    comes(act::printed); // what was heard before counts
    goes_back_to_standby = is_standby;
    print(format("standby_after_alert %d\n", goes_back_to_standby));
    while (is_standby && !is_lost) {
        print("TV on standby, sending ImageViewOn\n");
        take(act::cec, "send 0: 04");
        sleep(1);
        take(act::cec, "send 0: 8F");
        sleep(1);
        comes(act::printed); // what was heard during the sleep counts
    }
    if (source != own) {
        take(act::cec, format("active source %04X", own));
        print(format("Switching TV to %04X\n", own));
    }
}

void model::hand_back() {
    comes(act::printed); // what was heard before counts
    if (source != own && source == 0) {
        take(act::cec, format("send 0: 9D 00 %02X", own & 255));
    } else if (source != own) {
        take(act::cec, format("active source %04X", source));
    }
    print(format("standby_after_alert %d\n", goes_back_to_standby));
    if (goes_back_to_standby) {
        take(act::cec, "send 0: 36");
    }
}

} // namespace virtual_time
