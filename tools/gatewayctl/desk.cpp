#include "tools/gatewayctl/desk.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/date.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/say.h"
#include "tools/gatewayctl/socket.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t most_answers = 64; // at once
constexpr std::size_t most_visitors = 256;
constexpr std::size_t most_records = 17; // of one unit, with the one that is being answered; a roll
                                         // call brings three

bool is_request(const unit_record &record) {
    return record.type != record_type::rollcall_reply;
}

void say_record(const sockaddr_in &unit, const unit_record &record) {
    const std::string by = " (" + record.hardware_address + ")";
    switch (record.type) {
    case record_type::rollcall_reply:
        say(host_text(unit), "is up, version " + std::to_string(record.version) + by);
        break;
    case record_type::set_date_request:
        say(host_text(unit), "asks for the date" + by);
        break;
    case record_type::settings_request:
        say(host_text(unit), "asks for its settings" + by);
        break;
    }
}

void say_failure(const sockaddr_in &unit, const std::string &what, const run_failure &failure) {
    say(host_text(unit), "could not be sent " + what + ": " + failure.what());
}

} // namespace

bool answer_desk::has_room() const {
    return visitors_.size() < most_visitors;
}

void answer_desk::take(const sockaddr_in &from, std::span<const std::uint8_t> bytes) {
    visitor &served = find_visitor(from);
    if (served.records.size() + (served.answer ? 1 : 0) == most_records) {
        say(host_text(from), "sends requests faster than it takes answers: a record is dropped");
        return;
    }
    served.records.emplace_back(bytes.begin(), bytes.end());
}

answer_desk::visitor &answer_desk::find_visitor(const sockaddr_in &unit) {
    const auto found = std::ranges::find_if(visitors_, [&unit](const visitor &known) {
        return known.unit.sin_addr.s_addr == unit.sin_addr.s_addr;
    });
    if (found != visitors_.end()) {
        return *found;
    }
    visitors_.emplace_back().unit = unit;
    visitors_.back().unit.sin_port = htons(protocol::command_port);
    return visitors_.back();
}

void answer_desk::watch(poll_set &set) const {
    for (const visitor &served : visitors_) {
        if (served.answer) {
            served.answer->watch(set);
        }
    }
}

void answer_desk::end_answers(const poll_set &events) {
    for (auto served = visitors_.begin(); served != visitors_.end();) {
        const auto next = std::next(served);
        if (served->answer && is_answered(*served, events)) {
            served->answer.reset();
            --answers_;
            visitors_.splice(visitors_.end(), visitors_, served); // the others go first
        }
        served = next;
    }
}

bool answer_desk::is_answered(visitor &served, const poll_set &events) {
    try {
        if (!served.answer->advance(events)) {
            return false;
        }
        say(host_text(served.unit), "has taken " + served.what);
    } catch (const run_failure &failure) {
        say_failure(served.unit, served.what, failure);
    }
    return true;
}

void answer_desk::serve_visitors() {
    for (visitor &served : visitors_) {
        serve_visitor(served);
    }
    visitors_.remove_if(
        [](const visitor &served) { return served.records.empty() && !served.answer; });
}

void answer_desk::serve_visitor(visitor &served) {
    while (!served.answer && !served.records.empty() &&
           serve_record(served, served.records.front())) {
        served.records.pop_front();
    }
}

// Whether it could be handled now.
bool answer_desk::serve_record(visitor &served, std::span<const std::uint8_t> bytes) {
    const auto record = parse_record(bytes);
    if (record && is_request(*record)) {
        return answer_request(served, *record);
    }
    if (record) {
        say_record(served.unit, *record);
    } else {
        say(host_text(served.unit), "sent an invalid record: " + to_hex(bytes));
    }
    return true;
}

bool answer_desk::answer_request(visitor &served, const unit_record &request) {
    if (answers_ == most_answers || lack_.is_resting()) {
        return false;
    }
    descriptor_owner connection = try_socket(exchange::socket_type);
    if (connection.get() < 0) {
        lack_.note();
        return false;
    }
    const bool is_for_date = request.type == record_type::set_date_request;
    served.answer.emplace(std::move(connection), served.unit,
                          is_for_date ? make_set_date(date_now(), channel::tcp)
                                      : make_hdtv_settings(settings_.rotation),
                          clock_type::now() + settings_.timeout);
    served.what = is_for_date ? "the date" : "the rotation " + std::to_string(settings_.rotation);
    say_record(served.unit, request);
    start_answer(served);
    return true;
}

void answer_desk::start_answer(visitor &served) {
    try {
        served.answer->start();
        ++answers_;
    } catch (const run_failure &failure) {
        say_failure(served.unit, served.what, failure);
        served.answer.reset();
    }
}
