#pragma once

#include <cstdio>

namespace virtual_time {

/// While it lives, what is printed to the standard streams becomes part of the trace.
class console_capture {
  public:
    console_capture();
    ~console_capture();
    console_capture(const console_capture &) = delete;
    console_capture &operator=(const console_capture &) = delete;

  private:
    std::FILE *output_ = stdout;
    std::FILE *errors_ = stderr;
};

} // namespace virtual_time
