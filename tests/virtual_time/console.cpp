#include "console.h"

#include "station.h"

#include <cstddef>
#include <sys/types.h>

namespace virtual_time {

namespace {

ssize_t take_output(void * /*cookie*/, const char *text, std::size_t size) {
    if (!world.is_off) {
        world.acts.add_print(act::printed, {text, size});
    }
    return static_cast<ssize_t>(size);
}

ssize_t take_error(void * /*cookie*/, const char *text, std::size_t size) {
    if (!world.is_off) {
        world.acts.add_print(act::complained, {text, size});
    }
    return static_cast<ssize_t>(size);
}

std::FILE *open_stream(ssize_t (*take)(void *, const char *, std::size_t)) {
    cookie_io_functions_t functions{};
    functions.write = take;
    std::FILE *stream = fopencookie(nullptr, "w", functions);
    std::setvbuf(stream, nullptr, _IOLBF, 4096);
    return stream;
}

} // namespace

console_capture::console_capture() {
    std::fflush(stdout);
    stdout = open_stream(take_output);
    stderr = open_stream(take_error);
}

console_capture::~console_capture() {
    std::fclose(stdout);
    std::fclose(stderr);
    stdout = output_;
    stderr = errors_;
}

} // namespace virtual_time
