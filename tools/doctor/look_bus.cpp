// A look at the simulated bus. It serves one program at a time, and while that is the service there is
// no more to see than its socket, and that the service is connected to one.

#include "cec/port/places.h"
#include "tools/doctor/files.h"
#include "tools/doctor/television.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace {

adapter_state state_of_socket() {
    std::error_code error;
    return std::filesystem::is_socket(cec_bus_socket, error) ? adapter_state::open
                                                             : adapter_state::missing;
}

std::string bus_name() {
    return std::string("the simulated bus, ") + cec_bus_socket;
}

// From the kernel's table: Num RefCount Protocol Flags Type St Inode Path.
bool has_connection(const std::vector<std::string> &files) {
    constexpr const char *connected = "03";
    std::istringstream lines(read_file("/proc/net/unix").value_or(""));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string skipped;
        std::string state;
        std::string inode;
        words >> skipped >> skipped >> skipped >> skipped >> skipped >> state >> inode;
        const std::string name = "socket:[" + inode + "]";
        if (state == connected && std::ranges::find(files, name) != files.end()) {
            return true;
        }
    }
    return false;
}

finding about_connection(const process *service) {
    constexpr const char *link = "service's adapter";
    if (service == nullptr) {
        return cannot_tell(link, "the service is not running");
    }
    const auto files = open_files(service->pid);
    if (!files) {
        return cannot_tell(link, "only root sees what the service has open");
    }
    if (!has_connection(*files)) {
        return has_failed(link, "the service is connected to no bus",
                          "restart the service: the bus came after its start", chapter::no_wake);
    }
    return is_ok(link, "the service is connected");
}

} // namespace

adapter_probe probe_adapter() {
    return {state_of_socket(), bus_name()};
}

findings look_beside_service(const process *service) {
    television_view view;
    view.adapter = state_of_socket();
    view_notes notes;
    notes.adapter = bus_name();
    notes.limit = view.adapter == adapter_state::open
                      ? "the bus serves the service alone: --stop-service asks in its place"
                      : "there is no bus";
    findings found = grade_television(view, notes);
    found.push_back(about_connection(service));
    return found;
}

// It tells of no failure: every message is sent.
bool is_unacknowledged(std::uint8_t /*result*/) {
    return true;
}
