#include "tools/gatewayctl/socket.h"

#include "tools/gatewayctl/failure.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

descriptor_owner open_socket(int type) {
    descriptor_owner socket_fd(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    if (socket_fd.get() < 0) {
        const int error = errno;
        const std::string words = "no socket can be had: " + reason(error);
        if (is_shortage(error)) {
            throw shortage_failure(words);
        }
        throw run_failure(words);
    }
    return socket_fd;
}

bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

std::string reason(int error) {
    return std::strerror(error); // NOLINT(concurrency-mt-unsafe): there is one thread
}
