#pragma once

#include "tools/gatewayctl/inventory.h"
#include "tools/gatewayctl/records.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The answers to a roll call, and how they compare with the inventory. It knows no sockets.

struct roll_answer {
    std::uint32_t address = 0; ///< in host byte order
    std::string hardware_address;
    int version = 0; ///< 0 while only its requests have arrived
    bool wants_date = false;
    bool wants_settings = false;
};

/// Collects records. Units that share an address or a hardware address are kept apart.
class roll_answers {
  public:
    void note(std::uint32_t address, const unit_record &record);

    /// By address.
    std::vector<roll_answer> all() const;

  private:
    std::map<std::pair<std::uint32_t, std::string>, roll_answer> answers_;
};

/// "date" and "settings", as far as the unit asks for them.
std::vector<std::string> requests_of(const roll_answer &answer);

enum class roll_state {
    present,
    replaced, ///< another hardware address than expected answers at its address
    moved,    ///< its hardware address answers at another address
    missing,
    unknown ///< answers, but is not expected
};

const char *to_text(roll_state state);

struct expected_unit {
    inventory_unit unit;
    std::optional<std::uint32_t> address; ///< in host byte order; none: it cannot be resolved
};

struct roll_entry {
    roll_state state{};
    std::optional<expected_unit> expected; ///< none of an unknown unit
    std::optional<roll_answer> answer;     ///< none of a missing unit
};

/// The expected units in their order, and the unknown ones after them. A unit is known by its hardware
/// address first, and by its address if that is not expected or does not answer.
std::vector<roll_entry> compare(const std::vector<expected_unit> &expected,
                                const std::vector<roll_answer> &answers);

/// A line for each address and each hardware address that several answers have.
std::vector<std::string> duplicates_in(const std::vector<roll_answer> &answers);

/// Which of "address" and "hardware_address" the answer shares with another one.
std::vector<std::string> duplicates_of(const roll_answer &answer,
                                       const std::vector<roll_answer> &answers);

struct updated_unit {
    inventory_unit unit;
    bool has_lost_address = false; ///< another one answers there
};

/// The inventory after the roll call: with the addresses and hardware addresses that have answered, and
/// the unknown units by their addresses. An address belongs to the first unit that answers there.
std::vector<updated_unit> updated_inventory(const std::vector<roll_entry> &entries);

/// As a file, with the comments of the old one. Who has lost its address is a comment.
std::string to_text(const std::vector<updated_unit> &units);
