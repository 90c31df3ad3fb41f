#include "hdtv/protocol.h"
#include "tools/doctor/files.h"
#include "tools/doctor/sections.h"

#include <string>

namespace {

std::string service_version() {
    // Where an installation, with or without a package, has it.
    for (const char *place : {"/usr/local/share/hdtv/version", "/usr/share/hdtv/version"}) {
        std::string version = first_line(place);
        if (!version.empty()) {
            return version;
        }
    }
    return "";
}

finding about_process(const snapshot &taken) {
    constexpr const char *link = "service";
    if (taken.services.empty()) {
        return has_failed(link, "no hdtv process",
                          "start it: systemctl start hdtv, or /etc/init.d/S90hdtv start",
                          chapter::start);
    }
    if (taken.services.size() > 1) {
        std::string ids;
        for (const process &each : taken.services) {
            ids += (ids.empty() ? "" : ", ") + std::to_string(each.pid);
        }
        return has_failed(link, "more than one hdtv process: " + ids,
                          "end all of them, and start one: only the first has the ports",
                          chapter::deaf);
    }
    const process &service = *taken.service();
    if (service.state == 'T') {
        return has_failed(link, name_and_id(service) + " is suspended",
                          "continue it (kill -CONT), or restart it", chapter::start);
    }
    return is_ok(link, name_and_id(service));
}

finding about_version() {
    constexpr const char *link = "version";
    const std::string own = std::to_string(protocol::version);
    const std::string installed = service_version();
    if (installed.empty()) {
        return cannot_tell(link, "the installation has no version file");
    }
    if (installed != own) {
        return has_failed(link, "the service is " + installed + ", this program " + own,
                          "install both from the same package", chapter::parts);
    }
    return is_ok(link, installed);
}

} // namespace

findings look_at_service(const snapshot &taken) {
    return {about_process(taken), about_version()};
}
