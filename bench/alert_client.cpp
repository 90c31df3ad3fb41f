// Sends detail alerts to several receivers in turn and prints, for each alert, the receiver's number
// and the nanoseconds from connect() until the new document could be read.
//
//     alert_client ADDRESS COUNT (PORT DOCUMENT LOG)...

#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

struct receiver {
    int port;
    const char *document;
    const char *log;
};

[[noreturn]] void fail(const char *what) {
    std::perror(what);
    std::exit(1);
}

// Two units and a text that ends with the alert's number.
std::string detail_alert(const std::string &number) {
    const std::string text = "STRUCTURE FIRE 1200 MAIN ST, CROSS OAK AVE " + number;
    std::string message(539, '\0');
    message[0] = 51;
    message[1] = 1;
    message[4] = 2;
    message[5] = 5;
    message.replace(20, 2, "E1");
    message.replace(52, 2, "L3");
    message[533] = 120;
    message[538] = static_cast<char>(text.size());
    return message + text;
}

off_t size_of(const char *path) {
    struct stat status {};
    return stat(path, &status) == 0 ? status.st_size : 0;
}

bool document_holds(const char *path, const std::string &number) {
    char text[4096];
    const int fd = open(path, O_RDONLY);
    const ssize_t size = read(fd, text, sizeof text);
    close(fd);
    return size > 0 &&
           memmem(text, static_cast<std::size_t>(size), number.data(), number.size()) != nullptr;
}

long long send_alert(const char *address, const receiver &to, const std::string &number) {
    using clock = std::chrono::steady_clock;
    const std::string message = detail_alert(number);
    const off_t logged = size_of(to.log);
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(static_cast<in_port_t>(to.port));
    inet_pton(AF_INET, address, &sa.sin_addr);

    const clock::time_point start = clock::now();
    if (connect(fd, reinterpret_cast<const sockaddr *>(&sa), sizeof sa) != 0 ||
        write(fd, message.data(), message.size()) < 0) {
        fail("alert_client");
    }
    while (!document_holds(to.document, number)) {
    }
    const auto duration = clock::now() - start;

    close(fd);
    while (size_of(to.log) == logged) { // until the receiver has finished this one
    }
    return std::chrono::nanoseconds(duration).count();
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 6 || argc % 3 != 0) {
        return 1;
    }
    const int count = static_cast<int>(std::strtol(argv[2], nullptr, 10));
    std::vector<receiver> receivers;
    for (int i = 3; i < argc; i += 3) {
        receivers.push_back(
            {static_cast<int>(std::strtol(argv[i], nullptr, 10)), argv[i + 1], argv[i + 2]});
    }
    for (int i = 0; i < count; ++i) {
        for (std::size_t j = 0; j < receivers.size(); ++j) {
            char number[16];
            std::snprintf(number, sizeof number, "#%08d", i);
            std::printf("%zu %lld\n", j, send_alert(argv[1], receivers[j], number));
        }
    }
    return 0;
}
