#include "cec/port/listener.h"

#include "cec/cec_codes.h"
#include "cec/cec_port.h"
#include "cec/port/mutex_guard.h"

#include <algorithm>
#include <pthread.h>

namespace {

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // guards the next two
pthread_cond_t is_registered = PTHREAD_COND_INITIALIZER;
cec_notification_fn registered;
void *registered_data;

thread_local bool is_listening;

void *run(void *listen) {
    is_listening = true;
    reinterpret_cast<void (*)()>(listen)();
    return nullptr;
}

} // namespace

cec_notification pack_notification(std::uint32_t reason, std::uint8_t result,
                                   const std::uint8_t *message, std::size_t length) {
    const auto size =
        static_cast<std::uint32_t>(std::min<std::size_t>(length, cec_longest_message));
    cec_notification words = {reason | size << 16 | static_cast<std::uint32_t>(result) << 24};
    for (std::uint32_t i = 0; i < size; ++i) {
        words[1 + i / 4] |= static_cast<std::uint32_t>(message[i]) << (8 * (i % 4));
    }
    return words;
}

int start_listening_thread(void (*listen)()) {
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, run, reinterpret_cast<void *>(listen));
    return error != 0 ? error : pthread_detach(thread);
}

bool is_listening_thread() {
    return is_listening;
}

void wait_for_callback() {
    const mutex_guard guard(mutex);
    while (registered == nullptr) {
        pthread_cond_wait(&is_registered, &mutex);
    }
}

void notify(const cec_notification &words) {
    cec_notification_fn callback = nullptr;
    void *data = nullptr;
    {
        const mutex_guard guard(mutex);
        callback = registered;
        data = registered_data;
    }
    callback(data, words[0], words[1], words[2], words[3], words[4]);
}

extern "C" void vc_cec_register_callback(cec_notification_fn callback, void *callback_data) {
    const mutex_guard guard(mutex);
    registered = callback;
    registered_data = callback_data;
    pthread_cond_signal(&is_registered);
}
