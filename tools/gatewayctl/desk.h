#pragma once

#include "tools/gatewayctl/exchange.h"
#include "tools/gatewayctl/poll_set.h"
#include "tools/gatewayctl/records.h"
#include "tools/gatewayctl/shortage.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <netinet/in.h>
#include <optional>
#include <span>
#include <string>
#include <vector>

struct desk_settings {
    int rotation = 0;                    ///< degrees, sent to who asks for its settings
    std::chrono::milliseconds timeout{}; ///< for a unit to take an answer
};

/// Prints the units' records and answers their requests. One unit's records are taken one after the
/// other, each when the answer to the one before has ended; units do not wait for each other, but
/// for one of a number of answers at once. It never waits itself.
class answer_desk {
  public:
    answer_desk(const desk_settings &settings, shortage &lack) : settings_(settings), lack_(lack) {}

    /// Whether another unit's record can be taken in.
    bool has_room() const;

    void take(const sockaddr_in &from, std::span<const std::uint8_t> bytes);

    void watch(poll_set &set) const;

    /// After a wait: ends the answers that have been taken or have failed.
    void end_answers(const poll_set &events);

    /// Prints and answers what has come. Opens descriptors, so that it is the last thing after a wait.
    void serve_visitors();

  private:
    struct visitor {
        sockaddr_in unit{};
        std::deque<std::vector<std::uint8_t>> records; // that have still to be taken
        std::optional<exchange> answer;                // under way
        std::string what;                              // it is
    };

    visitor &find_visitor(const sockaddr_in &unit);
    static bool is_answered(visitor &served, const poll_set &events);
    void serve_visitor(visitor &served);
    bool serve_record(visitor &served, std::span<const std::uint8_t> bytes);
    bool answer_request(visitor &served, const unit_record &request);
    void start_answer(visitor &served);

    desk_settings settings_;
    shortage &lack_;
    std::list<visitor> visitors_; // who has waited longest first
    std::size_t answers_ = 0;     // under way
};
