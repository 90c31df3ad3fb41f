#include "tools/doctor/configuration.h"

#include "bstrlib/bstr_owner.h"
#include "hdtv/config_store.h"
#include "hdtv/kiosk.h"
#include "tools/doctor/config_text.h"
#include "tools/doctor/files.h"
#include "tools/doctor/processes.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <optional>

namespace {

constexpr const char *file_link = "configuration";

// As the service reads it.
std::optional<std::string> setting(const std::string &file, const char *key) {
    const bstr_owner value(get_config_option(file.c_str(), key));
    return value ? std::optional(std::string(bstr_text(value.get()))) : std::nullopt;
}

finding about_gateway(const std::string &file) {
    const std::string link = std::string(config_key::comm_gw);
    const auto value = setting(file, config_key::comm_gw);
    if (!value) {
        return is_ok(link, "not set: no gateway is told of a start");
    }
    in_addr address{};
    if (inet_pton(AF_INET, value->c_str(), &address) != 1) {
        return has_failed(link, "\"" + *value + "\" is not an address such as 10.87.33.20",
                          "write the gateway's IPv4 address; names are not looked up",
                          chapter::configure);
    }
    return is_ok(link, *value);
}

finding about_rotation(const std::string &file) {
    const std::string link = config_key::rotation;
    const auto value = setting(file, config_key::rotation);
    if (!value) {
        return is_ok(link, "not set: 0 degrees");
    }
    const bool is_stored_form = std::ranges::any_of(
        stored_rotations, [&](const stored_rotation &each) { return *value == each.text; });
    if (!is_stored_form && *value != "0") {
        return has_failed(link, "\"" + *value + "\" means 0 degrees to the service",
                          "write 0, 90, 180 or 270", chapter::configure);
    }
    return is_ok(link, *value + " degrees");
}

finding about_fault(const config_fault &fault) {
    return has_failed(file_link, place_text(fault.place) + ": " + fault.what,
                      "correct " + std::string(config_file) + ", then restart the service",
                      chapter::configure);
}

finding about_text(const std::string &text, const config_reading &reading) {
    std::string evidence = std::string(config_file) + ", " + size_text(text.size());
    for (const config_fault &remark : reading.remarks) {
        evidence += "; harmless: " + place_text(remark.place) + ": " + remark.what;
    }
    return is_ok(file_link, evidence);
}

finding about_unreadable_file(const std::string &file, int error) {
    if (error == EACCES && !is_root()) {
        return cannot_tell(file_link, "only root may read " + file);
    }
    return has_failed(file_link, file + " cannot be read: " + std::strerror(error),
                      error == ENOENT
                          ? "create it: the service never does, and stores no setting without it"
                          : "the service cannot read it either, and does without its settings",
                      chapter::configure);
}

} // namespace

findings look_at_configuration(const std::string &file) {
    errno = 0;
    const auto text = read_file(file);
    if (!text) {
        return {about_unreadable_file(file, errno)};
    }
    const config_reading reading = read_strictly(*text);
    findings found;
    for (const config_fault &fault : reading.faults) {
        found.push_back(about_fault(fault));
    }
    if (found.empty()) {
        found.push_back(about_text(*text, reading));
    }
    found.push_back(about_gateway(file));
    found.push_back(about_rotation(file));
    return found;
}
