// The least that a program on the same event loop can do for an alert: it accepts, reads, closes, writes
// the document, prints it, appends it to the log with the local time, and looks at the page's liveness
// file. It checks nothing, escapes nothing, and reads nothing but the message's text.
//
//     bare_writer PORT DOCUMENT LOG

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <event.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int display_alert = 3;
constexpr int display_text = 6;  // the position of the text in a display alert
constexpr int detail_text = 539; // in a detail alert
constexpr const char *liveness_path = "/dev/shm/web_watchdog";

const char *document_path;
const char *log_path;
char message[4096];
char line[16384];

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

void write_file(const char *path, int flags, const char *text, std::size_t size) {
    const int fd = open(path, flags, 0777);
    if (fd < 0 || write(fd, text, size) < 0) {
        std::exit(1);
    }
    close(fd);
}

bool take_message(int listening) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    const int fd = accept(listening, reinterpret_cast<sockaddr *>(&peer), &size);
    const ssize_t length = fd < 0 ? -1 : read(fd, message, sizeof message - 1);
    if (length < 0) {
        return false;
    }
    message[length] = 0;
    shutdown(fd, SHUT_RDWR);
    close(fd);
    return true;
}

void write_document(long now) {
    constexpr std::size_t prefix_size = 14; // of the printed line
    const char *text = message + (message[0] == display_alert ? display_text : detail_text);
    const int size = std::snprintf(
        line, sizeof line,
        "Writing JSON: [{\"alert_type\":\"%s\", \"show_turnout_timer\":\"%i\", "
        "\"alert_time\":\"%lu\", \"turnout_end\":\"%lu\", \"turnout_zero\":\"%lu\", "
        "\"turnout_reverse\":\"%i\", \"alert_expiration\":\"%lu\", \"alert_area\":\"%s\", "
        "\"map_url\":\"%s\", \"units\":[%s]}]\n",
        "display_alert", 1, static_cast<unsigned long>(now), 0UL, 0UL, 0,
        static_cast<unsigned long>(now) + 120, text, "", "");
    std::fwrite(line, 1, static_cast<std::size_t>(size), stdout);
    const char *document = line + prefix_size;
    const std::size_t document_size = static_cast<std::size_t>(size) - prefix_size - 1;
    write_file(document_path, O_WRONLY | O_CREAT | O_TRUNC, document, document_size);

    static char entry[sizeof line];
    std::tm local{};
    localtime_r(&now, &local);
    const std::size_t time_size = std::strftime(entry, sizeof entry, "%y-%m-%d %T: ", &local);
    std::memcpy(entry + time_size, document, document_size + 1); // with the line feed
    write_file(log_path, O_RDWR | O_CREAT | O_APPEND, entry, time_size + document_size + 1);
}

void connect_fn(int listening, short /*event*/, void * /*arg*/) {
    if (!take_message(listening)) {
        return;
    }
    write_document(std::time(nullptr));
    struct stat status {};
    stat(liveness_path, &status);
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        return 1;
    }
    document_path = argv[2];
    log_path = argv[3];
    static char buffer[sizeof line];
    std::setvbuf(stdout, buffer, _IOLBF, sizeof buffer);
    event_init();
    event reader;
    event_set(&reader, listen_on(static_cast<int>(std::strtol(argv[1], nullptr, 10))),
              EV_READ | EV_PERSIST, connect_fn, nullptr);
    event_add(&reader, nullptr);
    event_dispatch();
}
