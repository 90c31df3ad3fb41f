// Sends display alerts to several receivers, which take turns in an order that changes with every turn,
// and prints, for each alert, the receiver's number and the nanoseconds from connect() until the new
// document could be read. A text has LETTERS letters, and ends with the alert's number.
//
//     alert_client ADDRESS COUNT LETTERS (PORT DOCUMENT LOG)...

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <numeric>
#include <random>
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

constexpr std::size_t number_size = 9; // signs, and up to eight digits

[[noreturn]] void fail(const char *what) {
    std::perror(what);
    std::exit(1);
}

std::string display_alert(std::size_t letters, const std::string &number) {
    const std::string text = std::string(letters - number.size(), 'X') + number;
    std::string message(6, '\0');
    message[0] = 3;
    message[1] = 1;
    message[4] = static_cast<char>(text.size() >> 8U);
    message[5] = static_cast<char>(text.size() & 0xffU);
    return message + text;
}

off_t size_of(const char *path) {
    struct stat status {};
    return stat(path, &status) == 0 ? status.st_size : 0;
}

bool document_holds(const char *path, const std::string &number) {
    char text[8192];
    const int fd = open(path, O_RDONLY);
    const ssize_t size = read(fd, text, sizeof text);
    close(fd);
    return size > 0 &&
           memmem(text, static_cast<std::size_t>(size), number.data(), number.size()) != nullptr;
}

long long send_alert(const char *address, const receiver &to, const std::string &message) {
    using clock = std::chrono::steady_clock;
    const std::string number = message.substr(message.size() - number_size);
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

std::vector<receiver> read_receivers(char **arguments, int count) {
    std::vector<receiver> receivers;
    for (int i = 0; i + 2 < count; i += 3) {
        receivers.push_back({static_cast<int>(std::strtol(arguments[i], nullptr, 10)),
                             arguments[i + 1], arguments[i + 2]});
    }
    return receivers;
}

} // namespace

int main(int argc, char **argv) {
    const long letters = argc < 7 ? 0 : std::strtol(argv[3], nullptr, 10);
    if (letters < static_cast<long>(number_size)) {
        return 1;
    }
    const long count = std::strtol(argv[2], nullptr, 10);
    const std::vector<receiver> receivers = read_receivers(argv + 4, argc - 4);
    // Nobody always comes after the same one, which leaves the caches as it does.
    std::vector<std::size_t> order(receivers.size());
    std::iota(order.begin(), order.end(), 0U);
    std::minstd_rand random(std::random_device{}());
    for (long i = 0; i < count; ++i) {
        std::shuffle(order.begin(), order.end(), random);
        std::string number = std::to_string(i);
        number.insert(0, number_size - std::min(number.size(), number_size), '#');
        const std::string message = display_alert(static_cast<std::size_t>(letters), number);
        for (const std::size_t j : order) {
            std::printf("%zu %lld\n", j, send_alert(argv[1], receivers[j], message));
        }
    }
    return 0;
}
