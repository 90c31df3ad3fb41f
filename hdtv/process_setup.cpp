#include "hdtv/process_setup.h"

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The longest line is a configuration of 4095 closing braces, each with a new member before it: 74
// KB. The longest document has 36 KB. Unused parts of the buffer are never paged in.
constexpr std::size_t longest_line = std::size_t{80} * 1024;

void open_if_closed(int descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0) {
        return;
    }
    // open returns the lowest free descriptor: this one, or standard input, which is left as it
    // was.
    const int fd = open("/dev/null", O_RDWR);
    if (fd >= 0 && fd != descriptor) {
        dup2(fd, descriptor);
        close(fd);
    }
}

void buffer_whole_lines() {
    // The size is used only with an explicit buffer: without one it is the terminal's or the file's
    // block size.
    static char buffer[longest_line];
    std::setvbuf(stdout, buffer, _IOLBF, sizeof buffer);
}

} // namespace

void prepare_process() {
    open_if_closed(STDOUT_FILENO);
    open_if_closed(STDERR_FILENO);
    buffer_whole_lines();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);
}
