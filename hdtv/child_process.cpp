#include "hdtv/child_process.h"

#include <array>
#include <csignal>
#include <cstddef>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::size_t most_arguments = 15;

// exec takes pointers to writable characters, but never writes to them.
using argument_vector = std::array<char *, most_arguments + 1>;

argument_vector make_argument_vector(std::initializer_list<const char *> arguments) {
    argument_vector argv{};
    std::size_t count = 0;
    for (const char *argument : arguments) {
        if (count == most_arguments) {
            break;
        }
        argv[count++] = const_cast<char *>(argument);
    }
    return argv;
}

} // namespace

pid_t start_program(const char *path, std::initializer_list<const char *> arguments,
                    before_exec_fn before_exec) {
    const argument_vector argv = make_argument_vector(arguments);
    const pid_t pid = fork();
    if (pid != 0) {
        return pid;
    }
    if (before_exec != nullptr) {
        before_exec();
    }
    // The service ignores SIGPIPE; the programs that it starts must not inherit that.
    std::signal(SIGPIPE, SIG_DFL);
    execv(path, argv.data());
    _exit(0);
}

void wait_for_any_child() {
    wait(nullptr);
}

void run_program(const char *path, std::initializer_list<const char *> arguments) {
    start_program(path, arguments);
    wait_for_any_child();
}
