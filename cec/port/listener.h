#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Shared by the providers that deliver notifications from their own thread: that thread, and the
/// function registered by the logic (vc_cec_register_callback is implemented here).

/// The five words of a notification, param0 to param4.
using cec_notification = std::array<std::uint32_t, 5>;

/// Packs a message of at most 16 bytes, header first; a longer one is truncated.
cec_notification pack_notification(std::uint32_t reason, std::uint8_t result,
                                   const std::uint8_t *message, std::size_t length);

/// Starts the provider's thread, which runs `listen` to its end. Returns 0, or an errno value.
int start_listening_thread(void (*listen)());

/// Whether the caller runs on that thread.
bool is_listening_thread();

/// Blocks until the logic has registered its function, so that no early notification is lost.
void wait_for_callback();

/// Passes a notification to the registered function.
void notify(const cec_notification &words);
