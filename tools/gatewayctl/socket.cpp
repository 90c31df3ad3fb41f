#include "tools/gatewayctl/socket.h"

#include "tools/gatewayctl/failure.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

descriptor_owner open_socket(int type) {
    descriptor_owner socket_fd = try_socket(type);
    if (socket_fd.get() < 0) {
        throw run_failure("cannot create a socket: " + reason(errno));
    }
    return socket_fd;
}

descriptor_owner try_socket(int type) {
    return descriptor_owner(socket(AF_INET, type | SOCK_CLOEXEC, 0));
}

bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

std::string reason(int error) {
    return std::strerror(error); // NOLINT(concurrency-mt-unsafe): there is one thread
}
