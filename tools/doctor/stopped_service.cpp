#include "tools/doctor/stopped_service.h"

#include "hdtv/alert_document.h"
#include "tools/doctor/files.h"
#include "tools/doctor/run_program.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char *init_script = "/etc/init.d/S90hdtv";
constexpr const char *init_pid_file = "/var/run/hdtv.pid";

bool is_gone(int pid) {
    return kill(pid, 0) != 0 && errno == ESRCH;
}

// In a session of its own, which the terminal does not reach: waits for this program's end.
[[noreturn]] void keep(int alive, const std::vector<std::string> &start) {
    setsid();
    char byte = 0;
    while (read(alive, &byte, 1) < 0 && errno == EINTR) {
    }
    _exit(run_and_wait(start, true).value_or(1));
}

} // namespace

service_commands commands_for(const process &service) {
    const std::string id = std::to_string(service.pid);
    const std::string groups = read_file("/proc/" + id + "/cgroup").value_or("");
    if (groups.find("/hdtv.service") != std::string::npos) {
        return {{"/bin/systemctl", "stop", "hdtv"}, {"/bin/systemctl", "start", "hdtv"}};
    }
    if (first_line(init_pid_file) == id && is_program(init_script)) {
        return {{init_script, "stop"}, {init_script, "start"}};
    }
    throw stop_failure(name_and_id(service) +
                       " was started by neither systemd nor /etc/init.d/S90hdtv, so that it cannot "
                       "be stopped and started again: stop it by hand, and look without it");
}

bool shows_alert(const std::string &document) {
    if (document.find("\"alert_type\":\"stop_turnout\"") != std::string::npos) {
        return true;
    }
    return !document.empty() && document.find("\"alert_time\":\"0\"") == std::string::npos &&
           document.find("\"alert_area\":\"\"") == std::string::npos;
}

stopped_service::stopped_service(const process &service) {
    const service_commands commands = commands_for(service);
    if (shows_alert(read_file(document_file).value_or(""))) {
        throw stop_failure(
            "an alert is on the page, which would lose it: the service is not stopped");
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw stop_failure("cannot create a pipe");
    }
    const descriptor_owner waited_for(ends[0]);
    alive_ = descriptor_owner(ends[1]);
    keeper_ = fork();
    if (keeper_ == 0) {
        alive_ = descriptor_owner();
        keep(waited_for.get(), commands.start);
    }
    if (keeper_ < 0) {
        throw stop_failure("cannot start a process");
    }
    run_and_wait(commands.stop, true);
    if (!is_gone(service.pid)) {
        start_again();
        throw stop_failure(name_and_id(service) + " does not stop");
    }
}

stopped_service::~stopped_service() {
    start_again();
}

bool stopped_service::start_again() {
    if (keeper_ < 0) {
        return true;
    }
    alive_ = descriptor_owner();
    int status = 0;
    while (waitpid(keeper_, &status, 0) < 0 && errno == EINTR) {
    }
    keeper_ = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
