#pragma once

#include "tools/doctor/finding.h"
#include "tools/doctor/processes.h"

#include <cstdint>
#include <optional>
#include <string>

/// The television, as far as it can be seen. Two ways lead to a view of it: a second look beside the
/// service, which differs by provider of the CEC port, and a full look through that port itself, for
/// which the service must not be running.

enum class adapter_state { open, missing, forbidden, busy, broken, silent };

enum class power_answer { none, told, refused };

/// What has been seen. It crosses between processes as bytes.
struct television_view {
    adapter_state adapter = adapter_state::missing;
    std::optional<std::uint16_t> physical_address; ///< 0xFFFF: none
    std::optional<std::uint8_t> logical_address;   ///< 15: none claimed
    std::optional<bool> is_answered; ///< somebody has acknowledged a message to the television
    bool is_unsent = false;          ///< the question has not got onto the bus
    power_answer power = power_answer::none;
    std::uint8_t power_status = 0;
    std::optional<std::uint16_t> active_source; ///< as it has said so itself
};

/// Why the view is as it is, and what it cannot show.
struct view_notes {
    std::string adapter; ///< its name, for the evidence
    std::string limit;   ///< why what is unknown is unknown
    std::string address; ///< the same about the logical address, if that has a reason of its own
    std::string said;    ///< what the provider has complained about, in one line
};

findings grade_television(const television_view &view, const view_notes &notes);

/// Why a question that has not got onto the bus tells nothing.
constexpr const char *bus_too_busy = "not sent: the bus is too busy or noisy";

/// Of these three there is one for each provider, and one of them is linked.

/// Whether the adapter is there and may be used. Does not join the bus.
struct adapter_probe {
    adapter_state state;
    std::string name;
};
adapter_probe probe_adapter();

/// What a second opener sees, without getting into the way of the service, which is null if it is not
/// running: it may start at any moment.
findings look_beside_service(const process *service);

/// Whether a transmission that failed with this result was sent, and nobody acknowledged it.
bool is_unacknowledged(std::uint8_t result);

/// Joins the bus through the port, as the service does, asks, and leaves again. In a process of its
/// own, because a provider may hang. The service must not be running.
findings look_through_port();

/// About an adapter that the service, if there is one, should have open under this name.
finding grade_holding(const process *service, const std::string &descriptor);
