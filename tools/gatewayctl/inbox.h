#pragma once

#include "tools/gatewayctl/descriptor_owner.h"
#include "tools/gatewayctl/poll_set.h"
#include "tools/gatewayctl/shortage.h"

#include <cstdint>
#include <functional>
#include <netinet/in.h>
#include <span>
#include <vector>

/// Listens on port 5000 of own_address() and collects what arrives on all connections concurrently, each until its
/// end or its time limit. It never blocks.
class record_inbox {
  public:
    using take_fn = std::function<void(const sockaddr_in &from, std::span<const std::uint8_t>)>;

    /// Fails with run_failure if another process is already listening.
    explicit record_inbox(shortage &lack);

    /// Adds what it is waiting for: data on its connections, and new connections if it may accept
    /// any.
    void watch(poll_set &set, bool may_accept = true) const;

    /// After a wait: passes on complete records, and accepts pending connections.
    void advance(const poll_set &events, const take_fn &take);

  private:
    struct arrival {
        descriptor_owner connection;
        sockaddr_in from{};
        clock_type::time_point end;
        std::vector<std::uint8_t> bytes;
    };

    bool accept_arrival();
    static bool is_complete(arrival &coming, const poll_set &events);

    shortage &lack_;
    descriptor_owner listening_;
    std::vector<arrival> arrivals_; // the oldest first
};
