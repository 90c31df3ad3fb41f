#pragma once

#include "tools/gatewayctl/poll_set.h"
#include "tools/gatewayctl/records.h"
#include "tools/gatewayctl/roll.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// Who is there and since when: what repeated roll calls tell. It knows neither sockets nor clocks.

using wall_time = std::chrono::system_clock::time_point;

/// The same time by both clocks: one to measure with, one to print.
struct moment {
    clock_type::time_point steady;
    wall_time wall;
};

moment moment_now();

enum class presence {
    awaited, ///< it has not answered yet, and may still
    present,
    missing ///< it has not answered a roll call before the next one
};

/// What stays the same of a unit.
struct unit_identity {
    std::uint32_t address = 0; ///< in host byte order
    std::string name;
    std::string group; ///< empty: none
};

struct fleet_unit {
    unit_identity identity;
    bool is_expected = true; ///< false: it answers, but is none of those that were named
    presence state = presence::awaited;
    wall_time since;                      ///< of its state
    std::optional<wall_time> last_answer; ///< none: it has never answered
    roll_answer said;                     ///< what is known from its records

    // Since the latest roll call.
    bool is_called = true; ///< it was, or all were
    bool has_answered = false;
    bool has_asked_for_date = false;
    bool has_asked_for_settings = false;

    std::string told_requests; // which the latest change tells
};

enum class change_kind { appeared, returned, lost, other_board, other_version, other_requests };

struct fleet_change {
    change_kind kind;
    const fleet_unit &unit; ///< after the change
    wall_time time;
    wall_time before; ///< of `returned`: since when it was missing
};

/// How long units take to answer.
struct answer_times {
    static constexpr double bounds[] = {0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1,
                                        0.25,  0.5,    1,     2.5,  5,     10,   30};

    std::vector<std::uint64_t> counts = std::vector<std::uint64_t>(std::size(bounds) + 1);
    double sum = 0; ///< seconds

    void add(double seconds);
};

class fleet {
  public:
    using change_fn = std::function<void(const fleet_change &)>;

    static constexpr std::size_t most_units = 10000;

    /// Without names, each unit that answers is expected from then on.
    fleet(const std::vector<unit_identity> &named, wall_time now, change_fn change);

    /// Whoever has not answered the previous roll call, and was called, is missing now. Call before
    /// each.
    void judge(moment now);

    /// A roll call has just been sent, but could not be to these addresses.
    void note_call(moment now, const std::set<std::uint32_t> &not_called = {});

    /// A record has arrived. False if there are too many units to keep another one.
    bool note_record(std::uint32_t address, const unit_record &record, moment now);

    /// In the order in which they were named, and the others after them, by their addresses.
    std::vector<const fleet_unit *> units() const;

    bool has_names() const {
        return has_names_;
    }
    std::optional<moment> last_call() const {
        return last_call_;
    }
    const answer_times &times() const {
        return times_;
    }

  private:
    fleet_unit *find_or_add(std::uint32_t address, wall_time now);
    void judge_unit(fleet_unit &unit, wall_time now);
    void note_answer(fleet_unit &unit, moment now);
    void note_board(fleet_unit &unit, const unit_record &record, wall_time now);
    void note_presence(fleet_unit &unit, wall_time now);
    void tell(change_kind kind, const fleet_unit &unit, wall_time now, wall_time before = {}) const;

    change_fn change_;
    bool has_names_;
    std::vector<std::uint32_t> named_order_;
    std::map<std::uint32_t, fleet_unit> units_;
    std::optional<moment> last_call_;
    bool is_call_open_ = false;
    answer_times times_;
};

/// The unit's name; its address if it has none.
std::string name_of(const fleet_unit &unit);

/// "date, settings": what the unit asks for; empty if nothing.
std::string requests_text(const fleet_unit &unit);

/// How many units there are, by what is known of them.
struct fleet_tally {
    std::size_t expected = 0;
    std::size_t present = 0; ///< of the expected ones, as the others below
    std::size_t missing = 0;
    std::size_t awaited = 0;
    std::size_t unknown = 0; ///< answer, but are not expected
};

fleet_tally tally_of(const fleet &units);
