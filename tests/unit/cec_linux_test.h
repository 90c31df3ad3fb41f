#pragma once

#include "captured_output.h"
#include "fake_cec_device.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

/// What the tests of the kernel's CEC device share: a unit that has started up on it.

using calls = std::vector<std::string>;
using notification = std::array<std::uint32_t, 5>;

extern int thread_error;            ///< starting the provider's thread fails with it
extern std::atomic<unsigned> waits; ///< how often the provider has begun to wait for a claim

/// The notifications of this test. The provider's thread adds them.
std::vector<notification> wait_for_notifications(std::size_t count);
std::vector<notification> notifications_so_far();

bool wait_until(const std::function<bool()> &condition);

class cec_linux : public testing::Test {
  protected:
    void SetUp() override;
    /// Ends the thread that this test has started.
    void TearDown() override;

    void unplug_device();
    std::string errors();
    static std::int32_t open_device(const fake_cec_device::settings &settings = {});
    /// As the logic does it, up to where it announces the unit.
    void start(const fake_cec_device::settings &settings = {});
    static void announce();
    static std::int32_t send(std::uint32_t destination, std::vector<std::uint8_t> payload);
    static calls transmitted();

    bool is_started_ = false;

  private:
    std::optional<captured_output> errors_;
};
