#include "tools/doctor/stopped_service.h"

#include "hdtv/alert_document.h"
#include "hdtv/protocol.h"
#include "tools/doctor/files.h"
#include "tools/doctor/run_program.h"
#include "tools/doctor/sockets.h"
#include "tools/doctor/starter.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char *init_script = "/etc/init.d/S90hdtv";

bool is_gone(int pid) {
    return kill(pid, 0) != 0 && errno == ESRCH;
}

// Longer than the init script, or systemd, waits for a service that does not end.
constexpr std::chrono::seconds longest_stop(200);

// In a session of its own, which the terminal does not reach: waits for this program's end.
[[noreturn]] void keep(int alive, const std::vector<std::string> &start) {
    setsid();
    char byte = 0;
    while (read(alive, &byte, 1) < 0 && errno == EINTR) {
    }
    _exit(run_and_wait(start, {.is_heard = true}).value_or(1));
}

// A restart now would lose it.
void refuse_during_alert() {
    if (shows_alert(read_file(document_file))) {
        throw stop_failure(
            "an alert is on the page, which would lose it: the service is not stopped");
    }
    if (is_message_underway(sockets_on(protocol_kind::tcp, protocol::command_port))) {
        throw stop_failure(
            "a gateway is connected, perhaps with an alert: the service is not stopped");
    }
}

} // namespace

service_commands commands_for(const process &service) {
    const starter by = starter_of(service);
    if (by == starter::systemd) {
        return {{"/bin/systemctl", "stop", "hdtv"}, {"/bin/systemctl", "start", "hdtv"}};
    }
    if (by == starter::init_script && is_program(init_script)) {
        return {{init_script, "stop"}, {init_script, "start"}};
    }
    throw stop_failure(name_and_id(service) +
                       " was started by neither systemd nor /etc/init.d/S90hdtv, so that it cannot "
                       "be stopped and started again: stop it by hand, and look without it");
}

bool shows_alert(const std::optional<std::string> &document) {
    if (!document) {
        return false;
    }
    if (document->find("\"alert_type\":\"stop_turnout\"") != std::string::npos) {
        return true;
    }
    return document->find("\"alert_time\":\"0\"") == std::string::npos &&
           document->find("\"alert_area\":\"\"") == std::string::npos;
}

stopped_service::stopped_service(const process &service) {
    const service_commands commands = commands_for(service);
    refuse_during_alert();
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
    std::fputs(
        "hdtv-doctor: stopping the service; it is started again afterward, which may take two "
        "minutes\n",
        stderr);
    // The keeper waits for it, too: a start in the middle of the stop would be undone.
    run_and_wait(commands.stop, {.is_heard = true, .limit = longest_stop, .lent = alive_.get()});
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
