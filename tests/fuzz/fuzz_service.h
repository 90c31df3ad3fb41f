#pragma once

#include "fake_system.h"
#include "printed_text.h"
#include "reset_service.h"

/// A service that has just been loaded, on the fake system, with its output kept.
class fuzz_service {
  public:
    fuzz_service() : output(stdout) {
        reset_service();
        fake::start();
    }
    ~fuzz_service() {
        fake::stop();
        reset_service();
    }
    fuzz_service(const fuzz_service &) = delete;
    fuzz_service &operator=(const fuzz_service &) = delete;

    printed_text output;
};
