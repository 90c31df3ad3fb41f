#pragma once

#include <pthread.h>

/// Holds a mutex as long as it lives. The standard library's locks report failures by exceptions, and
/// nothing in the service throws.
class mutex_guard {
  public:
    explicit mutex_guard(pthread_mutex_t &mutex) : mutex_(mutex) {
        pthread_mutex_lock(&mutex_);
    }
    ~mutex_guard() {
        pthread_mutex_unlock(&mutex_);
    }
    mutex_guard(const mutex_guard &) = delete;
    mutex_guard &operator=(const mutex_guard &) = delete;

  private:
    pthread_mutex_t &mutex_;
};
