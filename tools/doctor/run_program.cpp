#include "tools/doctor/run_program.h"

#include "tools/gatewayctl/descriptor_owner.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
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
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
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

// Programs started while this lives have the descriptor.
class loan {
  public:
    explicit loan(int fd) : fd_(fd) {
        set_flags(0);
    }
    loan(const loan &) = delete;
    loan &operator=(const loan &) = delete;
    ~loan() {
        set_flags(FD_CLOEXEC);
    }

  private:
    void set_flags(int flags) const {
        if (fd_ >= 0) {
            fcntl(fd_, F_SETFD, flags);
        }
    }

    int fd_;
};

using time_point = std::chrono::steady_clock::time_point;

int milliseconds_until(time_point end) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

// Its status as waitpid has it.
int wait_for_end(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// Kills the process's group when its time is over.
int wait_until(pid_t pid, time_point end) {
    constexpr int longest_pause = 50; // milliseconds
    int status = 0;
    for (int pause = 1; waitpid(pid, &status, WNOHANG) == 0;
         pause = std::min(2 * pause, longest_pause)) {
        const int left = milliseconds_until(end);
        if (left == 0) {
            kill(-pid, SIGKILL);
            return wait_for_end(pid);
        }
        poll(nullptr, 0, std::min(pause, left));
    }
    return status;
}

bool write_all(int fd, const std::string &text) {
    return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Nothing if there is no end of it in time.
std::optional<std::string> read_until(int fd, time_point end) {
    std::string text;
    for (;;) {
        pollfd entry = {fd, POLLIN, 0};
        const int left = milliseconds_until(end);
        char buffer[512];
        if (poll(&entry, 1, left) == 1) {
            const ssize_t size = read(fd, buffer, sizeof buffer);
            if (size <= 0) {
                return text;
            }
            text.append(buffer, static_cast<std::size_t>(size));
        } else if (left == 0) {
            return std::nullopt;
        }
    }
}

} // namespace

std::optional<int> run_and_wait(const std::vector<std::string> &command, const run_terms &terms) {
    pid_t pid = 0;
    {
        const loan lent(terms.lent);
        if (!spawn_settings(terms.is_heard).start(command, pid)) {
            return std::nullopt;
        }
    }
    const int status = terms.limit
                           ? wait_until(pid, std::chrono::steady_clock::now() + *terms.limit)
                           : wait_for_end(pid);
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

std::optional<std::string> ask_in_child(const std::function<std::string()> &question,
                                        std::chrono::milliseconds limit) {
    const time_point end = std::chrono::steady_clock::now() + limit;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    const descriptor_owner told(ends[0]);
    descriptor_owner telling(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        _exit(write_all(telling.get(), question()) ? 0 : 1);
    }
    telling = descriptor_owner();
    if (child < 0) {
        return std::nullopt;
    }
    setpgid(child, child); // in time, whoever of the two is first
    auto answer = read_until(told.get(), end);
    kill(-child, SIGKILL);
    const int status = wait_for_end(child);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? std::move(answer) : std::nullopt;
}
