#pragma once

#include <unistd.h>
#include <utility>

/// Owns a file descriptor and closes it when destroyed.
class descriptor_owner {
  public:
    explicit descriptor_owner(int fd = -1) : fd_(fd) {}
    descriptor_owner(descriptor_owner &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    descriptor_owner &operator=(descriptor_owner &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    descriptor_owner(const descriptor_owner &) = delete;
    descriptor_owner &operator=(const descriptor_owner &) = delete;
    ~descriptor_owner() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    int get() const {
        return fd_;
    }

    /// Gives it to another owner.
    int release() {
        return std::exchange(fd_, -1);
    }

  private:
    int fd_;
};
