#pragma once

#include "cec/cec_port.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

/// A CEC port that writes down what the logic asks of it, and lets a test deliver notifications.
namespace recording_port {

struct settings {
    std::int32_t initialise_result = 0;
    std::int32_t connect_result = 0;
    std::uint32_t logical_address = 4;
    std::uint16_t physical_address = 0x1000;
};

/// Forgets all calls and starts with these settings.
void reset(const settings &with = {});

/// The calls so far, in order: "send 0: 8F", "active source 1000", "register 82", ...
std::vector<std::string> calls();
void forget_calls();
/// Writes down something that is not a call of the port.
void record(const std::string &call);

/// If set, called with every call as it is made.
extern std::function<void(const std::string &)> on_call;

/// Notifications, on the caller's thread.
void receive(std::initializer_list<std::uint8_t> message);
void transmitted(std::initializer_list<std::uint8_t> message);
void raw(std::uint32_t param0, std::initializer_list<std::uint8_t> message);
/// The same with the words of the message, param1 to param4.
void raw_words(std::uint32_t param0, const std::uint32_t (&words)[4]);

} // namespace recording_port
