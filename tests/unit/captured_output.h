#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

/// What is printed to one of the standard streams during this object's lifetime.
class captured_output {
  public:
    explicit captured_output(std::FILE *stream = stdout)
        : stream_(stream), file_(memfd_create("output", 0)) {
        std::fflush(stream_);
        saved_ = dup(fileno(stream_));
        dup2(file_, fileno(stream_));
    }

    ~captured_output() {
        std::fflush(stream_);
        dup2(saved_, fileno(stream_));
        syscall(SYS_close, saved_); // not the fake system's
        syscall(SYS_close, file_);
    }

    captured_output(const captured_output &) = delete;
    captured_output &operator=(const captured_output &) = delete;

    /// Everything printed so far.
    std::string text() {
        std::fflush(stream_);
        std::string content(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), 0);
        const ssize_t count = pread(file_, content.data(), content.size(), 0);
        content.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return content;
    }

  private:
    std::FILE *stream_;
    int file_;
    int saved_ = -1;
};
