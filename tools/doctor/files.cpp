#include "tools/doctor/files.h"

#include <cerrno>
#include <charconv>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t most_read = std::size_t{4} << 20;

std::string counted(long long count, const char *unit) {
    return std::to_string(count) + " " + unit;
}

} // namespace

std::optional<std::string> read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    std::string text;
    char buffer[4096];
    while (text.size() < most_read && (file.read(buffer, sizeof buffer) || file.gcount() > 0)) {
        text.append(buffer, static_cast<std::size_t>(file.gcount()));
    }
    return file.bad() ? std::nullopt : std::optional(text);
}

std::string first_line(const std::string &path) {
    const std::string text = read_file(path).value_or("");
    return text.substr(0, text.find('\n'));
}

bool is_there(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

bool is_program(const std::string &path) {
    struct stat status {};
    constexpr mode_t any_may_start = S_IXUSR | S_IXGRP | S_IXOTH;
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           (status.st_mode & any_may_start) != 0;
}

std::optional<std::time_t> age_of(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return std::time(nullptr) - status.st_mtime;
}

std::optional<long> number_in(const std::string &text) {
    long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

std::string duration_text(std::time_t seconds) {
    const long long s = seconds;
    if (s < 120) {
        return counted(s, "s");
    }
    if (s < 7200) {
        return counted(s / 60, "min");
    }
    return s < 172800 ? counted(s / 3600, "h") : counted(s / 86400, "days");
}

std::string size_text(unsigned long long bytes) {
    const auto count = static_cast<long long>(bytes);
    if (count < 10000) {
        return counted(count, "bytes");
    }
    return count < 10000000 ? counted(count / 1000, "kB") : counted(count / 1000000, "MB");
}
