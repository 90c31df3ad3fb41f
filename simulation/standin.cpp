// A stand-in for every tool of the board that a test must not run for real: one program, installed
// at each tool's absolute path. It journals the call, then does what it has been told to do.
//
// Journal: one line of JSON per call, appended to /run/station/journal in one write. Argument bytes
// outside printable ASCII are written as \u00XX, one escape per byte. A stand-in killed while it
// writes leaves part of a line, so each entry begins with a line feed.
//
// Behavior: runs the lines of /run/station/behaviour/NAME in order, then exits with status 0.
//     print TEXT       TEXT and a line feed on standard output
//     sleep SECONDS    a pause, fractions allowed
//     await PATH       until PATH exists
//     stay             until killed
//     exec PATH        become the program at PATH, with the same arguments
//     exit STATUS

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char *journal_path = "/run/station/journal";
constexpr const char *behaviour_directory = "/run/station/behaviour/";

std::string read_link(const std::string &path) {
    char target[4096];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return {target, static_cast<std::size_t>(length < 0 ? 0 : length)};
}

int number_of(const std::string &text) {
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

std::string quoted(const std::string &text) {
    std::string json = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte > 0x7e || byte == '"' || byte == '\\') {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", byte);
            json += escape;
        } else {
            json += c;
        }
    }
    return json + "\"";
}

std::string arguments(int argc, char **argv) {
    std::string json;
    for (int i = 0; i < argc; ++i) {
        json += (i == 0 ? "" : ", ") + quoted(argv[i]);
    }
    return "[" + json + "]";
}

// Every descriptor above standard error that survived exec. There should be none.
std::string inherited_descriptors() {
    std::string json;
    DIR *directory = opendir("/proc/self/fd");
    if (directory == nullptr) {
        return "{}";
    }
    while (const dirent *entry = readdir(directory)) {
        const int fd = number_of(entry->d_name);
        if (fd > 2 && fd != dirfd(directory)) {
            const std::string target = read_link(std::string("/proc/self/fd/") + entry->d_name);
            json += (json.empty() ? "" : ", ") + quoted(entry->d_name) + ": " + quoted(target);
        }
    }
    closedir(directory);
    return "{" + json + "}";
}

std::string first_line(const std::string &path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

// Reads the whole file before any line runs: the next program must not inherit it.
std::vector<std::string> lines_of(const std::string &path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string ignored_signals() {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("SigIgn:")) {
            return line.substr(line.find_first_not_of(" \t", 7));
        }
    }
    return "";
}

int death_signal() {
    int signal = 0;
    prctl(PR_GET_PDEATHSIG, &signal);
    return signal;
}

double now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void journal(const std::string &path, int argc, char **argv) {
    char time[32];
    std::snprintf(time, sizeof time, "%.6f", now());
    const std::string parent = first_line("/proc/" + std::to_string(getppid()) + "/comm");
    const std::string line =
        std::string("\n{\"time\": ") + time + ", \"path\": " + quoted(path) +
        ", \"pid\": " + std::to_string(getpid()) + ", \"ppid\": " + std::to_string(getppid()) +
        ", \"parent\": " + quoted(parent) + ", \"argv\": " + arguments(argc, argv) +
        ", \"descriptors\": " + inherited_descriptors() +
        ", \"death_signal\": " + std::to_string(death_signal()) +
        ", \"ignored_signals\": " + quoted(ignored_signals()) + "}\n";
    const int fd = open(journal_path, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0 || write(fd, line.data(), line.size()) < 0) {
        std::perror("station stand-in: journal");
    }
    close(fd);
}

void sleep_for(double seconds) {
    timespec left{};
    left.tv_sec = static_cast<std::time_t>(seconds);
    left.tv_nsec = static_cast<long>((seconds - static_cast<double>(left.tv_sec)) * 1e9);
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

void behave(const std::string &line, char **argv) {
    const std::size_t blank = line.find(' ');
    const std::string word = line.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (word == "print") {
        std::printf("%s\n", rest.c_str());
        std::fflush(stdout);
    } else if (word == "sleep") {
        sleep_for(std::strtod(rest.c_str(), nullptr));
    } else if (word == "await") {
        while (access(rest.c_str(), F_OK) != 0) {
            sleep_for(0.002);
        }
    } else if (word == "stay") {
        for (;;) {
            pause();
        }
    } else if (word == "exec") {
        execv(rest.c_str(), argv);
        std::perror(rest.c_str());
        std::exit(127);
    } else if (word == "exit") {
        std::exit(number_of(rest));
    }
}

} // namespace

int main(int argc, char **argv) {
    const std::string path = read_link("/proc/self/exe");
    journal(path, argc, argv);
    for (const std::string &line :
         lines_of(behaviour_directory + path.substr(path.rfind('/') + 1))) {
        behave(line, argv);
    }
    return 0;
}
