// The least that a program can do for an alert: the service's system calls from a connection to
// the document and the log, and nothing else. Its output is as long as the service's document and
// ends with the message's text.
//
//     bare_writer PORT DOCUMENT LOG

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int text_position = 539; // of a detail alert
constexpr int document_size = 330;

int listen_on(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(fd, 0) != 0) {
        std::exit(1);
    }
    return fd;
}

void write_file(const char *path, int flags, const std::string &text) {
    const int fd = open(path, flags, 0777);
    if (fd < 0 || write(fd, text.data(), text.size()) < 0) {
        std::exit(1);
    }
    close(fd);
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        return 1;
    }
    const int listening = listen_on(static_cast<int>(std::strtol(argv[1], nullptr, 10)));
    for (;;) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        const int fd = accept(listening, reinterpret_cast<sockaddr *>(&peer), &size);
        char message[4096] = {};
        if (fd < 0 || read(fd, message, sizeof message - 1) < 0) {
            return 1;
        }
        shutdown(fd, SHUT_RDWR);
        close(fd);
        const char *text = message + text_position;
        const std::string document = std::string(document_size - std::strlen(text), '.') + text;
        write_file(argv[2], O_WRONLY | O_CREAT | O_TRUNC, document);
        write_file(argv[3], O_RDWR | O_CREAT | O_APPEND, document);
    }
}
