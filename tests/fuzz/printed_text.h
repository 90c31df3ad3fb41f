#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

/// What is printed to stdout or stderr during this object's lifetime. It stays in memory, because a
/// target runs many thousand times a second.
class printed_text {
  public:
    explicit printed_text(std::FILE *&stream)
        : stream_(stream), saved_(stream), file_(open_memstream(&content_, &size_)) {
        stream_ = file_;
    }

    ~printed_text() {
        stream_ = saved_;
        std::fclose(file_);
        std::free(content_);
    }

    printed_text(const printed_text &) = delete;
    printed_text &operator=(const printed_text &) = delete;

    /// What was printed since the last call.
    std::string take() {
        std::fflush(file_);
        const std::string text(content_, size_);
        std::fseek(file_, 0, SEEK_SET);
        return text;
    }

  private:
    std::FILE *&stream_;
    std::FILE *saved_;
    char *content_ = nullptr;
    std::size_t size_ = 0;
    std::FILE *file_;
};
