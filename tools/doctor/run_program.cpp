#include "tools/doctor/run_program.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Signals that this program ignores are not ignored in those that it starts.
class spawn_settings {
  public:
    explicit spawn_settings(bool is_heard) {
        posix_spawnattr_init(&attributes_);
        sigset_t piped;
        sigemptyset(&piped);
        sigaddset(&piped, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes_, &piped);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (is_heard) {
            posix_spawn_file_actions_adddup2(&actions_, STDERR_FILENO, STDOUT_FILENO);
        } else {
            posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
            posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        }
    }
    spawn_settings(const spawn_settings &) = delete;
    spawn_settings &operator=(const spawn_settings &) = delete;
    ~spawn_settings() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }

    bool start(const std::vector<std::string> &command, pid_t &pid) const {
        std::vector<char *> arguments;
        arguments.reserve(command.size() + 1);
        for (const std::string &word : command) {
            arguments.push_back(const_cast<char *>(word.c_str()));
        }
        arguments.push_back(nullptr);
        return posix_spawn(&pid, command.front().c_str(), &actions_, &attributes_, arguments.data(),
                           environ) == 0;
    }

  private:
    posix_spawnattr_t attributes_{};
    posix_spawn_file_actions_t actions_{};
};

} // namespace

std::optional<int> run_and_wait(const std::vector<std::string> &command, bool is_heard) {
    pid_t pid = 0;
    if (!spawn_settings(is_heard).start(command, pid)) {
        return std::nullopt;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}
