#pragma once

#include "tools/gatewayctl/descriptor_owner.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <netinet/in.h>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// The records that units send to a gateway's port 5000.

enum class record_type { rollcall_reply, set_date_request, settings_request };

struct unit_record {
    record_type type{};
    std::string hardware_address; ///< "02:00:0a:57:21:32"
    int version = 0;              ///< of a roll-call reply
};

/// None for what is not a record.
std::optional<unit_record> parse_record(std::span<const std::uint8_t> bytes);

/// Listens on port 5000 and gathers what comes, each connection to its end.
class record_inbox {
  public:
    using take_fn = std::function<void(const sockaddr_in &from, std::span<const std::uint8_t>)>;

    /// Fails with run_failure where somebody else listens already.
    record_inbox();

    /// Hands over each record that comes until the time is over. Returns early after a signal.
    void serve(std::chrono::milliseconds time, const take_fn &take);

  private:
    struct arrival {
        descriptor_owner connection;
        sockaddr_in from{};
        std::vector<std::uint8_t> bytes;
    };

    void accept_arrival();
    static bool read_arrival(arrival &coming, const take_fn &take);

    descriptor_owner listening_;
    std::vector<arrival> arrivals_;
};
