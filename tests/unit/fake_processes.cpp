#include "fake_calls.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <tuple>
#include <unistd.h>

namespace fake {

namespace {

int child_report = -1; // in a child: the pipe that reports its exec to the parent

} // namespace

std::jmp_buf child_end;

} // namespace fake

// Of the leak detection, where there is one.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

void fake::ignore_leaks(bool are_ignored) {
    if (__lsan_disable != nullptr) {
        are_ignored ? __lsan_disable() : __lsan_enable();
    }
}

extern "C" {
using namespace fake;

pid_t fork_for_real();

pid_t __real_waitpid(pid_t pid, int *status, int options);
[[noreturn]] void __real__exit(int status);
int __real_close(int fd);
ssize_t __real_read(int fd, void *buffer, std::size_t size);
ssize_t __real_write(int fd, const void *data, std::size_t size);

pid_t __real_fork();
pid_t __wrap_fork() {
    PASS_WHEN_STOPPED(fork)
    record("fork");
    if (fails("fork")) {
        return failure(EAGAIN);
    }
    if (state.keeps_children) {
        return fork_for_real();
    }
    return state.next_pid == 0 ? 0 : state.next_pid++;
}

int __real_execv(const char *path, char *const *argv);
int __wrap_execv(const char *path, char *const *argv) {
    PASS_WHEN_STOPPED(execv, path, argv)
    std::string call = std::string("execv ") + path + ":";
    for (; *argv != nullptr; ++argv) {
        call += std::string(" ") + *argv;
    }
    record(call);
    if (child_report >= 0) {
        std::ignore = __real_write(child_report, call.data(), call.size());
        __real__exit(0);
    }
    return failure(ENOENT);
}

void __wrap__exit(int status) {
    record("_exit " + std::to_string(status));
    std::longjmp(child_end, 1);
}

int __real_kill(pid_t pid, int signal);
int __wrap_kill(pid_t pid, int signal) {
    PASS_WHEN_STOPPED(kill, pid, signal)
    record("kill " + std::to_string(pid) + " " + std::to_string(signal));
    return fails("kill") ? failure(ESRCH) : 0;
}

pid_t __real_wait(int *status);
pid_t __wrap_wait(int *status) {
    PASS_WHEN_STOPPED(wait, status)
    record("wait");
    return failure(ECHILD);
}

pid_t __wrap_waitpid(pid_t pid, int *status, int options) {
    PASS_WHEN_STOPPED(waitpid, pid, status, options)
    record("waitpid " + std::to_string(pid) + " " + std::to_string(options));
    return fails("waitpid") ? failure(ECHILD) : pid;
}

std::FILE *__real_popen(const char *command, const char *mode);
std::FILE *__wrap_popen(const char *command, const char *mode) {
    PASS_WHEN_STOPPED(popen, command, mode)
    record(std::string("popen ") + command + " " + mode);
    const auto found = state.printed.find(command);
    if (found == state.printed.end()) {
        errno = EMFILE;
        return nullptr;
    }
    std::FILE *file = std::tmpfile();
    std::fwrite(found->second.data(), 1, found->second.size(), file);
    std::rewind(file);
    return file;
}

int __real_pclose(std::FILE *pipe);
int __wrap_pclose(std::FILE *pipe) {
    PASS_WHEN_STOPPED(pclose, pipe)
    record("pclose");
    return std::fclose(pipe);
}

int __real_prctl(int option, ...);
int __wrap_prctl(int option, ...) {
    std::va_list arguments;
    va_start(arguments, option);
    const int value = va_arg(arguments, int);
    va_end(arguments);
    PASS_WHEN_STOPPED(prctl, option, value)
    record("prctl " + std::to_string(option) + " " + std::to_string(value));
    return 0;
}

using signal_handler = void (*)(int);
signal_handler __real_signal(int number, signal_handler handler);
signal_handler __wrap_signal(int number, signal_handler handler) {
    PASS_WHEN_STOPPED(signal, number, handler)
    record("signal " + std::to_string(number) + (handler == SIG_IGN ? " ignored" : " default"));
    return SIG_DFL;
}
}

// The child runs up to its exec and reports it; the parent continues after the report.
pid_t fork_for_real() {
    int ends[2] = {};
    std::ignore = pipe(ends);
    const pid_t pid = __real_fork();
    if (pid == 0) {
        child_report = ends[1];
        return 0;
    }
    __real_close(ends[1]);
    std::string told(65536, 0);
    const ssize_t size = __real_read(ends[0], told.data(), told.size());
    __real_close(ends[0]);
    __real_waitpid(pid, nullptr, 0);
    if (size > 0) {
        record(told.substr(0, static_cast<std::size_t>(size)));
    }
    return state.next_pid++;
}
