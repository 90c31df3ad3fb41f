// Runs a program by single steps and counts: the instructions that its first thread executes, and
// the system calls among them. Writes a line to REPORT for its start-up, and one for each later turn
// of its event loop, from the end of one wait to the next wait, which counts:
//
//     INSTRUCTIONS CALL,CALL,...
//
// A call is given by its number. A repeated instruction (`rep movsb`) counts as one. Other threads
// and children run freely and are not counted.
//
//     step_counter REPORT PROGRAM ARGUMENT...

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <sys/personality.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const char *what) {
    std::perror(what);
    std::exit(1);
}

// At the same addresses each time, and without an environment, which would move the stack: some string
// functions depend on alignment.
pid_t start(char **command) {
    const pid_t child = fork();
    if (child == 0) {
        personality(ADDR_NO_RANDOMIZE);
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        char *const environment[] = {nullptr};
        execve(command[0], command, environment);
        fail(command[0]);
    }
    return child;
}

// Waits until the program has stopped. Returns the signal that stopped it, or ends with it.
int wait_for_stop(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) < 0) {
        fail("waitpid");
    }
    if (!WIFSTOPPED(status)) {
        std::exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
    }
    return WSTOPSIG(status);
}

class counter {
  public:
    counter(pid_t child, std::FILE *report) : child_(child), report_(report) {}

    void run() {
        for (int signal = wait_for_stop(child_);;) {
            step(signal == SIGTRAP ? 0 : signal);
            signal = wait_for_stop(child_);
        }
    }

  private:
    void step(int signal) {
        user_regs_struct registers{};
        if (ptrace(PTRACE_GETREGS, child_, nullptr, &registers) < 0) {
            fail("PTRACE_GETREGS");
        }
        const bool is_repeated = registers.rip == last_address_;
        last_address_ = registers.rip;
        instructions_ += is_repeated ? 0 : 1;
        const bool is_call = is_system_call(registers.rip);
        if (is_call) {
            calls_ += (calls_.empty() ? "" : ",") + std::to_string(registers.rax);
        }
        if (is_call && registers.rax == SYS_epoll_wait) {
            write_turn();
        }
        if (ptrace(PTRACE_SINGLESTEP, child_, nullptr, signal) < 0) {
            fail("PTRACE_SINGLESTEP");
        }
    }

    bool is_system_call(unsigned long long address) {
        const auto [known, is_new] = is_system_call_.try_emplace(address, false);
        if (is_new) {
            errno = 0;
            const long word = ptrace(PTRACE_PEEKTEXT, child_, address, nullptr);
            known->second = errno == 0 && (word & 0xffff) == 0x050f;
        }
        return known->second;
    }

    void write_turn() {
        std::fprintf(report_, "%lld %s\n", instructions_, calls_.c_str());
        std::fflush(report_);
        instructions_ = 0;
        calls_.clear();
    }

    pid_t child_;
    std::FILE *report_;
    unsigned long long last_address_ = 0;
    long long instructions_ = 0;
    std::string calls_;
    std::map<unsigned long long, bool> is_system_call_;
};

} // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        return 1;
    }
    std::FILE *report = std::fopen(argv[1], "we");
    if (report == nullptr) {
        fail(argv[1]);
    }
    counter(start(argv + 2), report).run();
}
