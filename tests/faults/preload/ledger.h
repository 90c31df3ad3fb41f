#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

constexpr std::size_t longest_site_name = 92;
constexpr std::size_t most_sites = 300;

struct met_site {
    char name[longest_site_name];
    std::uint32_t times;
};

/// What the tests and this library tell each other, in a file that both map. ledger.py has the same
/// offsets.
struct ledger {
    std::atomic<std::uint32_t> lock;
    std::atomic<std::uint32_t> asked; // by the tests: is the service at rest?
    std::atomic<std::uint32_t> answered;
    std::uint32_t is_armed;
    std::uint32_t has_struck;
    std::uint32_t to_pass; // calls of the wanted site that still succeed
    std::int32_t error;
    std::uint32_t site_count;
    std::atomic<std::uint64_t> now; // of the service's monotonic clock, in milliseconds
    char wanted[longest_site_name];
    met_site sites[most_sites];
};

/// Instead of an error: the call transfers half of what it is asked to.
constexpr int short_transfer = -1;

/// Null anywhere but in the service: every call goes through then, unchanged and uncounted.
ledger *shared_ledger();

/// Counts a call of the service, by its function and by what it acts on. Returns the error with
/// which it has to fail, or 0.
int fault_of(std::string_view function, std::string_view object = {});

/// The same where half a transfer is not possible; sets errno.
bool must_fail(std::string_view function, std::string_view object = {});

/// The name that stands for the calling thread among objects: nothing for the event loop's.
std::string_view thread_name();
