#pragma once

#include <pthread.h>

/// Locks a mutex for its own lifetime. The standard library's locks report failures by exceptions,
/// and nothing in the service throws.
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
