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
    int rotation = 0;                    ///< degrees, sent to units that ask for their settings
    std::chrono::milliseconds timeout{}; ///< for a unit to take an answer
};

/// Prints the units' records and answers their requests. A unit's records are handled one at a
/// time, each after the answer to the previous one has ended; units do not wait for each other,
/// except that the number of concurrent answers is limited. It never blocks.
class answer_desk {
  public:
    answer_desk(const desk_settings &settings, shortage &lack) : settings_(settings), lack_(lack) {}

    /// Whether another unit's record can be accepted.
    bool has_room() const;

    void take(const sockaddr_in &from, std::span<const std::uint8_t> bytes);

    void watch(poll_set &set) const;

    /// After a wait: ends the answers that have been received or have failed.
    void end_answers(const poll_set &events);

    /// Prints and answers what has arrived. Opens descriptors, so call it last after a wait.
    void serve_visitors();

  private:
    struct visitor {
        sockaddr_in unit{};
        std::deque<std::vector<std::uint8_t>> records; // not yet handled
        std::optional<exchange> answer;                // in progress
        std::string what;                              // describes the answer
    };

    visitor &find_visitor(const sockaddr_in &unit);
    static bool is_answered(visitor &served, const poll_set &events);
    void serve_visitor(visitor &served);
    bool serve_record(visitor &served, std::span<const std::uint8_t> bytes);
    bool answer_request(visitor &served, const unit_record &request);
    void start_answer(visitor &served);

    desk_settings settings_;
    shortage &lack_;
    std::list<visitor> visitors_; // the longest-waiting first
    std::size_t answers_ = 0;     // in progress
};
