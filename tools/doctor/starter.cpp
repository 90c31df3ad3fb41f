#include "tools/doctor/starter.h"

#include "tools/doctor/files.h"

#include <ctime>
#include <sys/stat.h>
#include <utility>

namespace {

constexpr const char *init_pid_file = "/var/run/hdtv.pid";
constexpr const char *systemd_link = "/run/systemd/units/invocation:hdtv.service";

const char *mark_of(starter which) {
    switch (which) {
    case starter::systemd:
        return systemd_link;
    case starter::init_script:
        return init_pid_file;
    case starter::unknown:
        break;
    }
    return "";
}

// Seconds and nanoseconds. Of a link itself.
std::optional<std::pair<std::time_t, long>> writing_time(const char *path) {
    struct stat status {};
    if (lstat(path, &status) != 0) {
        return std::nullopt;
    }
    return std::pair(status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
}

} // namespace

starter starter_of(const process &service) {
    const std::string id = std::to_string(service.pid);
    const std::string groups = read_file("/proc/" + id + "/cgroup").value_or("");
    if (groups.find("/hdtv.service") != std::string::npos) {
        return starter::systemd;
    }
    return first_line(init_pid_file) == id ? starter::init_script : starter::unknown;
}

std::optional<bool> is_from_before_start(const std::string &file, const process &service) {
    const auto start = writing_time(mark_of(starter_of(service)));
    const auto written = writing_time(file.c_str());
    return start && written ? std::optional(*written < *start) : std::nullopt;
}
