#pragma once

#include "captured_output.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <vector>

/// What the tests of the simulated bus share: its end of the connection, and a provider whose end is
/// one of a pair of sockets and whose thread can fail to start.

using notification = std::array<std::uint32_t, 5>;

extern int thread_error; ///< starting the provider's thread fails with it
extern std::atomic<unsigned> pauses;

class cec_bus : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    /// Up to the greeting. Returns whether the provider has taken it.
    bool connect(const std::string &greeting = "hello 4 1000");
    /// And the rest, with a function that notes the notifications.
    void listen();
    /// Both, by the logic.
    void start();

    void say(const std::string &line) const;
    void send_bytes(const std::string &bytes) const;
    /// What the provider has said so far.
    std::string said() const;
    /// Whether the provider has closed its end.
    bool is_left() const;
    /// Nothing is listening.
    void refuse();
    /// The bus goes away. When this returns, the provider's thread has noticed.
    void end_bus();
    int provider_end() const;

    /// The last ones: after the end of the bus there are no more.
    std::vector<notification> told();
    std::string output();
    std::string errors();

  private:
    int bus_ = -1;
    bool is_started_ = false;
    std::optional<captured_output> output_;
    std::optional<captured_output> errors_;
};
