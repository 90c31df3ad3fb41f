#pragma once

#include "tools/gatewayctl/descriptor_owner.h"
#include "tools/gatewayctl/poll_set.h"
#include "tools/gatewayctl/shortage.h"

#include <cstdint>
#include <functional>
#include <netinet/in.h>
#include <span>
#include <vector>

/// Listens on port 5000 and gathers what comes, each connection to its end or its time limit, all of
/// them at once. It never waits itself.
class record_inbox {
  public:
    using take_fn = std::function<void(const sockaddr_in &from, std::span<const std::uint8_t>)>;

    /// Fails with run_failure where somebody else listens already.
    explicit record_inbox(shortage &lack);

    /// What it waits for: what is to come over its connections, and new ones if it may accept any.
    void watch(poll_set &set, bool may_accept = true) const;

    /// After a wait: hands over what is complete, and accepts who waits.
    void advance(const poll_set &events, const take_fn &take);

  private:
    struct arrival {
        descriptor_owner connection;
        sockaddr_in from{};
        clock_type::time_point end;
        std::vector<std::uint8_t> bytes;
    };

    void accept_arrival();
    static bool is_complete(arrival &coming, const poll_set &events);

    shortage &lack_;
    descriptor_owner listening_;
    std::vector<arrival> arrivals_; // the oldest first
};
