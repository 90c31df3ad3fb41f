#include "climate.h"
#include "isolated.h"
#include "report.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

using namespace virtual_time;

namespace {

struct options {
    std::uint64_t first = 1;
    std::uint64_t last = 1;
    int hours = 365 * 24;
    unsigned jobs = std::thread::hardware_concurrency();
    bool prints_history = false;
};

struct totals {
    long seeds, failures;
    counters counts;
};

[[noreturn]] void usage(int status) {
    std::puts(
        "usage: year [--seed N | --seeds FROM-TO] [--days N | --hours N] [--jobs N] [--history]");
    std::exit(status);
}

std::uint64_t number(const char *text, char **end) {
    const std::uint64_t value = std::strtoull(text, end, 10);
    if (*end == text) {
        usage(2);
    }
    return value;
}

void read_seeds(options &wanted, const char *text) {
    char *end = nullptr;
    wanted.first = wanted.last = number(text, &end);
    if (*end == '-') {
        wanted.last = number(end + 1, &end);
    }
}

options read_options(int argc, char **argv) {
    options wanted;
    char *end = nullptr;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help") {
            usage(0);
        } else if (option == "--history") {
            wanted.prints_history = true;
        } else if (i + 1 == argc) {
            usage(2);
        } else if (option == "--seed" || option == "--seeds") {
            read_seeds(wanted, argv[++i]);
        } else if (option == "--days") {
            wanted.hours = 24 * static_cast<int>(number(argv[++i], &end));
        } else if (option == "--hours") {
            wanted.hours = static_cast<int>(number(argv[++i], &end));
        } else if (option == "--jobs") {
            wanted.jobs = static_cast<unsigned>(number(argv[++i], &end));
        } else {
            usage(2);
        }
    }
    return wanted;
}

// In one write: several processes report.
void print(const std::string &text) {
    std::ignore = write(STDOUT_FILENO, text.data(), text.size());
}

void live_one(std::uint64_t seed, const options &wanted, totals &sum) {
    const std::int64_t duration = wanted.hours * hour;
    const history events = make_history(seed, duration);
    if (wanted.prints_history) {
        for (const happening &event : events) {
            print(describe(event) + "\n");
        }
    }
    const outcome result = live_isolated(events, duration);
    ++sum.seeds;
    add(sum.counts, result.counts);
    if (result.is_violated) {
        ++sum.failures;
        print(report_violation(seed, wanted.hours, events, result));
    }
}

// Every so many seeds, in a process of its own, which tells its totals.
void work(const options &wanted, unsigned worker, int to) {
    totals sum{};
    for (std::uint64_t seed = wanted.first + worker; seed <= wanted.last; seed += wanted.jobs) {
        live_one(seed, wanted, sum);
    }
    std::ignore = write(to, &sum, sizeof sum);
}

totals work_in_parallel(const options &wanted) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        std::exit(2);
    }
    for (unsigned worker = 0; worker < wanted.jobs; ++worker) {
        if (fork() == 0) {
            work(wanted, worker, ends[1]);
            _exit(0);
        }
    }
    close(ends[1]);
    totals sum{};
    for (totals part{}; read(ends[0], &part, sizeof part) == sizeof part;) {
        sum.seeds += part.seeds;
        sum.failures += part.failures;
        add(sum.counts, part.counts);
    }
    while (wait(nullptr) > 0) {
    }
    return sum;
}

// Of all processes that have ended, in seconds.
double processor_time() {
    rusage used{};
    getrusage(RUSAGE_CHILDREN, &used);
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
}

} // namespace

int main(int argc, char **argv) {
    const options wanted = read_options(argc, argv);
    setenv("TZ", "UTC0", 1);
    const auto start = std::chrono::steady_clock::now();
    const totals sum = work_in_parallel(wanted);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    const double days = static_cast<double>(sum.seeds) * wanted.hours / 24;
    std::printf(
        "%ld seeds, %.0f days in %.1f s, %.1f days in a second of one processor: %ld failed\n%s\n",
        sum.seeds, days, taken.count(), days / processor_time(), sum.failures,
        describe(sum.counts).c_str());
    const auto expected = static_cast<long>(wanted.last - wanted.first + 1);
    return sum.failures == 0 && sum.seeds == expected ? 0 : 1;
}
