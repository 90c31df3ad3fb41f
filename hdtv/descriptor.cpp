#include "hdtv/descriptor.h"

#include <fcntl.h>
#include <tuple>
#include <unistd.h>

void set_close_on_exec(int fd) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
}

void write_once(int fd, std::string_view text) {
    std::ignore = write(fd, text.data(), text.size());
}
