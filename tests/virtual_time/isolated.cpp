#include "isolated.h"

#include <array>
#include <cstring>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

namespace virtual_time {

namespace {

constexpr unsigned real_time_limit = 3600; // seconds

struct told_outcome {
    bool is_violated;
    std::int64_t at;
    counters counts;
    std::array<char, 4000> text;
};

[[noreturn]] void live_and_tell(const history &events, std::int64_t duration, int to) {
    alarm(real_time_limit);
    const outcome result = live_through(events, duration);
    told_outcome told{result.is_violated, result.at, result.counts, {}};
    result.text.copy(told.text.data(), told.text.size() - 1);
    std::ignore = write(to, &told, sizeof told);
    _exit(0);
}

outcome read_outcome(int from) {
    told_outcome told{};
    std::size_t size = 0;
    for (ssize_t part = 0;
         size < sizeof told &&
         (part = read(from, reinterpret_cast<char *>(&told) + size, sizeof told - size)) > 0;) {
        size += static_cast<std::size_t>(part);
    }
    if (size < sizeof told) {
        return {true, 0, "no outcome", {}};
    }
    return {told.is_violated, told.at, told.text.data(), told.counts};
}

} // namespace

outcome live_isolated(const history &events, std::int64_t duration) {
    int ends[2] = {};
    if (pipe(ends) != 0) {
        return {true, 0, "no pipe", {}};
    }
    const pid_t pid = fork();
    if (pid == 0) {
        live_and_tell(events, duration, ends[1]);
    }
    close(ends[1]);
    outcome result = read_outcome(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFSIGNALED(status)) {
        result.text = std::string("crashed: ") + strsignal(WTERMSIG(status));
    } else if (result.text == "no outcome") {
        result.text += ", exit status " + std::to_string(WEXITSTATUS(status));
    }
    return result;
}

} // namespace virtual_time
