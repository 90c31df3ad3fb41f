// The service's lines. A line that has to fail is really written, to a standard output that fails, so
// that the C library does what it does then.

#include "ledger.h"
#include "real.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

extern "C" int __vprintf_chk(int flag, const char *format, std::va_list arguments);

namespace {

constexpr int out_of_the_way = 100;

int open_failing_output(int error) {
    if (error != EPIPE) {
        return real<int(const char *, int, ...)>("open")("/dev/full", O_WRONLY);
    }
    int ends[2];
    if (pipe(ends) != 0) {
        return -1;
    }
    real<int(int)>("close")(ends[0]);
    return ends[1];
}

class line_output {
  public:
    line_output() : fault_(fault_of("print", thread_name())) {
        if (fault_ != 0) {
            auto *const close_really = real<int(int)>("close");
            kept_ =
                real<int(int, int, ...)>("fcntl")(STDOUT_FILENO, F_DUPFD_CLOEXEC, out_of_the_way);
            const int failing = open_failing_output(fault_);
            dup2(failing, STDOUT_FILENO);
            close_really(failing);
        }
    }
    ~line_output() {
        if (fault_ != 0) {
            dup2(kept_, STDOUT_FILENO);
            real<int(int)>("close")(kept_);
        }
    }
    line_output(const line_output &) = delete;
    line_output &operator=(const line_output &) = delete;

  private:
    int fault_;
    int kept_ = -1;
};

} // namespace

extern "C" {

int puts(const char *line) {
    const line_output output;
    return real<int(const char *)>("puts")(line);
}

int __printf_chk(int flag, const char *format, ...) {
    const line_output output;
    std::va_list arguments;
    va_start(arguments, format);
    const int size = __vprintf_chk(flag, format, arguments);
    va_end(arguments);
    return size;
}

std::size_t fwrite(const void *text, std::size_t size, std::size_t count, std::FILE *stream) {
    auto *const write_really =
        real<std::size_t(const void *, std::size_t, std::size_t, std::FILE *)>("fwrite");
    if (stream != stdout) {
        return write_really(text, size, count, stream);
    }
    const line_output output;
    return write_really(text, size, count, stream);
}

int setvbuf(std::FILE *stream, char *buffer, int mode, std::size_t size) noexcept {
    return must_fail("setvbuf") ? -1
                                : real<int(std::FILE *, char *, int, std::size_t)>("setvbuf")(
                                      stream, buffer, mode, size);
}
}
