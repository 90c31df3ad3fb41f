// The service's calls that act on processes and threads. Those that a child makes before it execs are
// the service's, too.

#include "descriptor_names.h"
#include "ledger.h"
#include "real.h"

#include <cerrno>
#include <cstdio>
#include <pthread.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {

pid_t fork() noexcept {
    return must_fail("fork") ? -1 : real<pid_t()>("fork")();
}

int execv(const char *path, char *const arguments[]) noexcept {
    return must_fail("execv", path)
               ? -1
               : real<int(const char *, char *const[])>("execv")(path, arguments);
}

pid_t wait(int *status) {
    return must_fail("wait") ? -1 : real<pid_t(int *)>("wait")(status);
}

pid_t waitpid(pid_t pid, int *status, int options) {
    return must_fail("waitpid") ? -1
                                : real<pid_t(pid_t, int *, int)>("waitpid")(pid, status, options);
}

int kill(pid_t pid, int signal) noexcept {
    return must_fail("kill") ? -1 : real<int(pid_t, int)>("kill")(pid, signal);
}

std::FILE *popen(const char *command, const char *mode) {
    if (must_fail("popen", command)) {
        return nullptr;
    }
    std::FILE *pipe = real<std::FILE *(const char *, const char *)>("popen")(command, mode);
    if (pipe != nullptr) {
        name_descriptor(fileno(pipe), command);
    }
    return pipe;
}

char *fgets(char *line, int size, std::FILE *stream) {
    if (must_fail("fgets", name_of(fileno(stream)))) {
        return nullptr;
    }
    return real<char *(char *, int, std::FILE *)>("fgets")(line, size, stream);
}

// The stream is closed even if the wait for its program fails.
int pclose(std::FILE *stream) {
    const bool fails = must_fail("pclose", name_of(fileno(stream)));
    const int error = errno;
    const int status = real<int(std::FILE *)>("pclose")(stream);
    if (fails) {
        errno = error;
    }
    return fails ? -1 : status;
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start)(void *),
                   void *argument) noexcept {
    const int fault = fault_of("pthread_create");
    if (fault != 0) {
        return fault;
    }
    return real<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)>(
        "pthread_create")(thread, attributes, start, argument);
}
}
