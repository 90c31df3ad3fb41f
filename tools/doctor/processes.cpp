#include "tools/doctor/processes.h"

#include "tools/doctor/files.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr const char *service_name = "hdtv";
constexpr int start_field = 22; // of /proc/PID/stat, from 1

bool is_number(const std::string &name) {
    return !name.empty() && name.find_first_not_of("0123456789") == std::string::npos;
}

std::vector<std::string> split_at_zeros(const std::string &text) {
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, '\0');) {
        words.push_back(word);
    }
    return words;
}

// A program that the service has just started, and that is not the program yet, has its name.
bool is_own_child(const process &candidate, const std::vector<process> &all) {
    return std::ranges::any_of(all, [&](const process &other) {
        return other.pid == candidate.parent && other.name == service_name;
    });
}

} // namespace

std::optional<process> parse_process(const std::string &line) {
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) {
        return std::nullopt;
    }
    process found;
    found.pid = static_cast<int>(number_in(line).value_or(0));
    found.name = line.substr(open + 1, close - open - 1);
    std::istringstream rest(line.substr(close + 1));
    rest >> found.state >> found.parent;
    std::string skipped;
    for (int field = 5; field < start_field; ++field) {
        rest >> skipped;
    }
    rest >> found.started;
    return rest && found.pid > 0 ? std::optional(found) : std::nullopt;
}

bool is_root() {
    return geteuid() == 0;
}

long long running_time(const process &which) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const auto ticks = static_cast<unsigned long long>(sysconf(_SC_CLK_TCK));
    return now.tv_sec - static_cast<long long>(which.started / ticks);
}

std::vector<process> list_processes() {
    std::vector<process> all;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator("/proc", error)) {
        const std::string directory = entry.path();
        if (!is_number(entry.path().filename())) {
            continue;
        }
        // It may end at any moment.
        auto found = parse_process(read_file(directory + "/stat").value_or(""));
        if (found) {
            found->arguments = split_at_zeros(read_file(directory + "/cmdline").value_or(""));
            all.push_back(std::move(*found));
        }
    }
    return all;
}

std::optional<std::vector<std::string>> open_files(int pid) {
    std::error_code error;
    std::vector<std::string> targets;
    for (const auto &entry :
         fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error)) {
        std::error_code closed;
        targets.push_back(fs::read_symlink(entry.path(), closed));
    }
    return error ? std::nullopt : std::optional(targets);
}

std::optional<process> holder_of(const std::vector<process> &all, const std::string &target) {
    const auto found = std::ranges::find_if(all, [&](const process &each) {
        const auto files = open_files(each.pid);
        return files && std::ranges::find(*files, target) != files->end();
    });
    return found != all.end() ? std::optional(*found) : std::nullopt;
}

std::string name_and_id(const process &which) {
    return which.name + " (process " + std::to_string(which.pid) + ")";
}

snapshot make_snapshot(std::vector<process> all) {
    snapshot taken;
    taken.all = std::move(all);
    for (const process &each : taken.all) {
        if (each.name == service_name && each.state != 'Z' && !is_own_child(each, taken.all)) {
            taken.services.push_back(each);
        }
    }
    return taken;
}

snapshot take_snapshot() {
    return make_snapshot(list_processes());
}
