#include "cec/cec_port.h"

#include "cec_linux_test.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <pthread.h>
#include <thread>

int thread_error;
std::atomic<unsigned> waits;

extern "C" {
unsigned __wrap_sleep(unsigned /*seconds*/) {
    std::this_thread::yield();
    return 0;
}

int __real_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                  const timespec *end);
int __wrap_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                  const timespec *end) {
    ++waits;
    return __real_pthread_cond_timedwait(condition, mutex, end);
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                          void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                          void *argument) {
    return thread_error != 0 ? thread_error
                             : __real_pthread_create(thread, attributes, run, argument);
}
}

namespace {

// The notifications so far. The provider's thread adds them.
std::mutex mutex;
std::condition_variable changed;
std::vector<notification> notifications;

void listen(void * /*data*/, std::uint32_t param0, std::uint32_t param1, std::uint32_t param2,
            std::uint32_t param3, std::uint32_t param4) {
    const std::lock_guard lock(mutex);
    notifications.push_back({param0, param1, param2, param3, param4});
    changed.notify_all();
}

} // namespace

std::vector<notification> wait_for_notifications(std::size_t count) {
    std::unique_lock lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(20),
                                 [&] { return notifications.size() >= count; }));
    return notifications;
}

bool wait_until(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}

std::vector<notification> notifications_so_far() {
    const std::lock_guard lock(mutex);
    return notifications;
}

void cec_linux::SetUp() {
    errors_.emplace(stderr);
    const std::lock_guard lock(mutex);
    notifications.clear();
    waits = 0;
}

void cec_linux::TearDown() {
    unplug_device();
    errors_.reset();
}

void cec_linux::unplug_device() {
    if (is_started_) {
        fake_cec_device::remove();
        fake_cec_device::wait_until_closed();
        is_started_ = false;
    }
}

std::string cec_linux::errors() {
    return errors_->text();
}

std::int32_t cec_linux::open_device(const fake_cec_device::settings &settings) {
    fake_cec_device::reset(settings);
    cec_instance instance = nullptr;
    if (vchi_initialise(&instance) != 0) {
        return -1;
    }
    return vchi_connect(nullptr, 0, instance);
}

void cec_linux::start(const fake_cec_device::settings &settings) {
    ASSERT_EQ(open_device(settings), 0);
    cec_connection *connection = nullptr;
    is_started_ = true;
    vc_vchi_cec_init(nullptr, &connection, 1);
    vc_cec_register_callback(listen, nullptr);
    vc_cec_deregister_all();
    for (const std::uint32_t opcode : {0x82U, 0x90U, 0x80U}) {
        EXPECT_EQ(vc_cec_register_command(opcode), 0);
    }
}

void cec_linux::announce() {
    vc_cec_set_vendor_id(0x18C086);
    vc_cec_set_osd_name("ZELT");
    std::uint32_t logical_address = 0;
    vc_cec_get_logical_address(&logical_address); // the claim is complete
}

std::int32_t cec_linux::send(std::uint32_t destination, std::vector<std::uint8_t> payload) {
    return vc_cec_send_message(destination, payload.data(),
                               static_cast<std::uint32_t>(payload.size()), 0);
}

calls cec_linux::transmitted() {
    return fake_cec_device::calls("TRANSMIT");
}
