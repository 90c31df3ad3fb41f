#include "cec_bus_test.h"

#include "cec/cec.h"
#include "cec/cec_port.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

int thread_error;
std::atomic<unsigned> pauses;

namespace {

int provider_socket = -1;
bool is_refused;
pthread_t provider_thread;

std::mutex mutex; // guards the next one
std::vector<notification> notifications;

void note(void * /*data*/, std::uint32_t param0, std::uint32_t param1, std::uint32_t param2,
          std::uint32_t param3, std::uint32_t param4) {
    const std::lock_guard lock(mutex);
    notifications.push_back({param0, param1, param2, param3, param4});
}

} // namespace

extern "C" {
int __wrap_socket(int family, int type, int /*protocol*/) {
    EXPECT_EQ(family, AF_UNIX);
    EXPECT_EQ(type, SOCK_STREAM);
    return provider_socket;
}

int __wrap_connect(int fd, const sockaddr *address, socklen_t size) {
    const auto *path = reinterpret_cast<const sockaddr_un *>(address);
    EXPECT_EQ(fd, provider_socket);
    EXPECT_EQ(size, sizeof *path);
    EXPECT_EQ(address->sa_family, AF_UNIX);
    EXPECT_STREQ(path->sun_path, "/run/cec-bus.sock");
    return is_refused ? -1 : 0;
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                          void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                          void *argument) {
    if (thread_error != 0) {
        return thread_error;
    }
    const int error = __real_pthread_create(thread, attributes, run, argument);
    provider_thread = *thread;
    return error;
}

// So that a test can wait for its end.
int __wrap_pthread_detach(pthread_t /*thread*/) {
    return 0;
}

unsigned __wrap_sleep(unsigned /*seconds*/) {
    ++pauses;
    std::this_thread::yield();
    return 0;
}
}

void cec_bus::SetUp() {
    int ends[2] = {};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    provider_socket = ends[0];
    bus_ = ends[1];
    is_refused = false;
    thread_error = 0;
    pauses = 0;
    notifications.clear();
    output_.emplace();
    errors_.emplace(stderr);
}

void cec_bus::TearDown() {
    end_bus();
    errors_.reset();
    output_.reset();
    close(provider_socket); // unless the provider has
}

bool cec_bus::connect(const std::string &greeting) {
    say(greeting);
    cec_instance instance = nullptr;
    return vchi_initialise(&instance) == 0 && vchi_connect(nullptr, 0, instance) == 0;
}

void cec_bus::listen() {
    cec_connection *connection = nullptr;
    vc_vchi_cec_init(nullptr, &connection, 1);
    is_started_ = thread_error == 0;
    vc_cec_register_callback(note, nullptr);
}

void cec_bus::start() {
    say("hello 4 1000");
    ASSERT_EQ(cec_init(), 0);
    is_started_ = thread_error == 0;
}

void cec_bus::say(const std::string &line) const {
    send_bytes(line + "\n");
}

void cec_bus::send_bytes(const std::string &bytes) const {
    ASSERT_EQ(send(bus_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
}

std::string cec_bus::said() const {
    char bytes[4096];
    const ssize_t size = recv(bus_, bytes, sizeof bytes, MSG_DONTWAIT);
    return {bytes, size > 0 ? static_cast<std::size_t>(size) : 0};
}

bool cec_bus::is_left() const {
    char byte = 0;
    // A reset, if it has left without reading everything.
    return recv(bus_, &byte, 1, MSG_DONTWAIT) == 0 || errno == ECONNRESET;
}

void cec_bus::refuse() {
    is_refused = true;
}

void cec_bus::end_bus() {
    if (bus_ >= 0) {
        close(bus_);
        bus_ = -1;
        if (is_started_) {
            pthread_join(provider_thread, nullptr);
        }
    }
}

int cec_bus::provider_end() const {
    return provider_socket;
}

std::vector<notification> cec_bus::told() {
    end_bus();
    const std::lock_guard lock(mutex);
    return notifications;
}

std::string cec_bus::output() {
    return output_->text();
}

std::string cec_bus::errors() {
    return errors_->text();
}
