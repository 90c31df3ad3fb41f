#include "happening.h"

#include <cstdio>

namespace virtual_time {

namespace {

const char *mode_name(int mode) {
    constexpr const char *names[] = {"accepts", "refuses", "is unreachable", "is silent"};
    return names[mode];
}

const char *manner_name(int manner) {
    constexpr const char *names[] = {"answers", "is deaf", "stays in standby"};
    return names[manner];
}

std::string on_off(const happening &event, const char *on, const char *off) {
    return event.number != 0 ? on : off;
}

const char *message_name(unsigned char type) {
    switch (type) {
    case 1:
        return "roll call";
    case 3:
        return "display alert";
    case 32:
        return "reboot";
    case 38:
        return "hdtv alert";
    case 40:
        return "set date";
    case 46:
        return "stop turnout";
    case 48:
        return "page address";
    case 49:
        return "settings";
    case 51:
        return "detail alert";
    case 52:
        return "map address";
    case 123:
        return "control";
    default:
        return "unknown type";
    }
}

// Runs of zeros are as long as they are dull.
std::string without_zeros(const std::string &bytes) {
    std::string shorter;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] != '\0' || i == 0 || bytes[i - 1] != '\0') {
            shorter += bytes[i];
        }
    }
    return shorter;
}

std::string describe_message(const happening &event) {
    const std::string sender = gateway_address(event.number);
    if (event.text.empty()) {
        return sender + " sends nothing";
    }
    const auto type = static_cast<unsigned char>(event.text[0]);
    return sender + " sends " + message_name(type) + ", " + std::to_string(event.text.size()) +
           " bytes: " + printable(without_zeros(event.text));
}

std::string after(int milliseconds) {
    return milliseconds > 0 ? " after " + std::to_string(milliseconds) + " ms" : "";
}

std::string describe_network(const happening &event) {
    switch (event.what) {
    case kind::gateway:
        return "gateway " + gateway_address(event.number) + " " + mode_name(event.more);
    case kind::proxy:
        return std::string("proxy ") + mode_name(event.more);
    case kind::cable:
        return on_off(event, "network cable plugged in", "network cable pulled");
    case kind::address:
        return event.text.empty() ? "address lost" : "address " + event.text;
    case kind::interface:
        return on_off(event, "eth0 is back", "eth0 vanishes");
    case kind::usb:
        return "USB list: " + std::to_string(event.number);
    default:
        return on_off(event, "interfaces cannot be listed", "interfaces can be listed");
    }
}

std::string describe_television(const happening &event) {
    switch (event.what) {
    case kind::tv_power:
        return "television switched to power status " + std::to_string(event.number);
    case kind::tv_manner:
        return std::string("television ") + manner_name(event.number) + after(event.more);
    case kind::tv_echo:
        return on_off(event, "sent CEC messages are reported", "sent CEC messages are unreported");
    case kind::tv_lost:
        return "CEC bus lost";
    case kind::no_cec:
        return "CEC at the next start: " + std::to_string(event.number);
    default:
        return "CEC message " + printable(event.text);
    }
}

std::string describe_machine(const happening &event) {
    switch (event.what) {
    case kind::browser_dies:
        return "browser dies";
    case kind::browser_hangs:
        return on_off(event, "page hangs", "page runs again");
    case kind::exec_failure:
        return on_off(event, "programs cannot be executed", "programs can be executed");
    case kind::clock_jump:
        return "clock jumps by " + std::to_string(event.number) + " s";
    case kind::full_disk:
        return "full disks: " + std::to_string(event.number);
    case kind::no_descriptors:
        return on_off(event, "out of descriptors", "descriptors again");
    case kind::no_forks:
        return on_off(event, "fork fails", "fork succeeds");
    case kind::slow_tools:
        return "programs take " + std::to_string(event.more) + " ms longer";
    case kind::display:
        return "display tool prints " + printable(event.text);
    case kind::power_cut:
        return "power cut";
    case kind::no_watchdog:
        return on_off(event, "no watchdog at the next start", "watchdog at the next start");
    case kind::config:
        return "configuration edited: " + printable(event.text);
    default:
        return "consequence";
    }
}

} // namespace

std::string describe(const happening &event) {
    const std::string when = describe_time(event.at) + "  ";
    switch (event.what) {
    case kind::tcp_message:
        return when + "TCP: " + describe_message(event) + after(event.more);
    case kind::tcp_failure:
        return when + "TCP: " + gateway_address(event.number) + " resets its connection" +
               after(event.more);
    case kind::udp_message:
        return when + "UDP: " + describe_message(event);
    case kind::gateway:
    case kind::proxy:
    case kind::cable:
    case kind::address:
    case kind::interface:
    case kind::usb:
    case kind::list_failure:
        return when + describe_network(event);
    case kind::tv_power:
    case kind::tv_manner:
    case kind::tv_says:
    case kind::tv_echo:
    case kind::tv_lost:
    case kind::no_cec:
        return when + describe_television(event);
    default:
        return when + describe_machine(event);
    }
}

std::string describe_time(std::int64_t at) {
    char text[48];
    std::snprintf(text, sizeof text, "day %d %02d:%02d:%02d.%03d", static_cast<int>(at / day),
                  static_cast<int>(at / hour % 24), static_cast<int>(at / minute % 60),
                  static_cast<int>(at / second % 60), static_cast<int>(at % second));
    return text;
}

std::string printable(const std::string &text, std::size_t longest) {
    std::string shown = "\"";
    for (const char c : text.substr(0, longest)) {
        char code[8];
        const bool is_plain = c >= ' ' && c <= '~' && c != '\\';
        std::snprintf(code, sizeof code, is_plain ? "%c" : "\\x%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(c)));
        shown += code;
    }
    return shown + (text.size() > longest ? "\"…" : "\"");
}

std::string gateway_address(int number) {
    return number == 2 ? "192.168.7.9" : "10.87.33.2" + std::to_string(number);
}

} // namespace virtual_time
