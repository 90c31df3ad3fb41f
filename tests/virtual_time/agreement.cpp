#include "agreement.h"

#include "station.h"

#include "hdtv/hdtv.h"

#include <string>

namespace virtual_time {

namespace {

template <typename value_type>
void agree(const char *what, const value_type &found, const value_type &expected) {
    if (found != expected) {
        throw violation(std::string(what) + " is " + std::to_string(found) + ", expected " +
                        std::to_string(expected));
    }
}

void agree_text(const char *what, const_bstring found, const std::optional<std::string> &expected) {
    const std::string text = found != nullptr ? bstr_text(found) : "";
    if ((found != nullptr) != expected.has_value() || text != expected.value_or("")) {
        throw violation(std::string(what) + " is " + printable(text, 400) + ", expected " +
                        printable(expected.value_or("nothing"), 400));
    }
}

void agree_file(const char *path, const std::optional<std::string> &expected) {
    const auto found = world.files.find(path);
    const bool exists = found != world.files.end();
    if (exists != expected.has_value() || (exists && found->second != *expected)) {
        throw violation(std::string(path) + " contains " +
                        printable(exists ? found->second : "nothing", 400) + ", expected " +
                        printable(expected.value_or("nothing"), 400));
    }
}

void compare_machine(const model_state &expected) {
    agree("the number of open descriptors", world.open_descriptors, expected.descriptors);
    agree("the number of children", static_cast<long>(world.children.size()), expected.children);
    agree_file("/dev/shm/alerts.json", expected.document);
    agree_file("/dev/shm/current_gateway", expected.gateway_file);
    if (world.running_browsers > 1) {
        throw violation("two browsers run");
    }
}

} // namespace

void compare_state(const model_state &expected) {
    agree("wdt_seconds", wdt_seconds, expected.budget);
    agree("turnout_timer", turnout_timer, expected.turnout);
    agree("has_ip_address", static_cast<int>(has_ip_address),
          static_cast<int>(expected.has_address));
    agree("use_oru_proxy", static_cast<int>(use_oru_proxy), static_cast<int>(expected.has_proxy));
    agree("rotation", rotation, expected.rotation);
    agree("kiosk_pid", static_cast<long>(kiosk_pid), expected.browser);
    agree("got_set_date_packet", static_cast<int>(got_set_date_packet),
          static_cast<int>(expected.has_date));
    agree("got_hdtv_settings_packet", static_cast<int>(got_hdtv_settings_packet),
          static_cast<int>(expected.has_settings));
    agree_text("url", url, expected.url);
    agree_text("current_gateway", current_gateway, expected.gateway);
    if (expected.units != unit_str) {
        throw violation("unit_str is " + printable(unit_str, 400));
    }
    compare_machine(expected);
}

} // namespace virtual_time
