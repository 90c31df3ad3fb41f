#include "tools/gatewayctl/fleet.h"

#include "tools/gatewayctl/address.h"

#include <algorithm>
#include <iterator>
#include <utility>

moment moment_now() {
    return {clock_type::now(), std::chrono::system_clock::now()};
}

void answer_times::add(double seconds) {
    const auto *const bound = std::ranges::lower_bound(bounds, seconds);
    ++counts[static_cast<std::size_t>(bound - std::begin(bounds))];
    sum += seconds;
}

fleet::fleet(const std::vector<unit_identity> &named, wall_time now, change_fn change)
    : change_(std::move(change)), has_names_(!named.empty()) {
    for (const unit_identity &identity : named) {
        fleet_unit &unit = units_[identity.address];
        unit.identity = identity;
        unit.since = now;
        named_order_.push_back(identity.address);
    }
}

void fleet::judge(moment now) {
    if (!std::exchange(is_call_open_, false)) {
        return;
    }
    for (auto &[address, unit] : units_) {
        judge_unit(unit, now.wall);
    }
    std::erase_if(units_, [](const auto &entry) {
        return !entry.second.is_expected && entry.second.state == presence::missing;
    });
}

// That a unit no longer asks is believed only when it has answered a roll call without asking.
void fleet::judge_unit(fleet_unit &unit, wall_time now) {
    if (!unit.is_called) {
        return;
    }
    unit.said.wants_date = unit.has_asked_for_date;
    unit.said.wants_settings = unit.has_asked_for_settings;
    if (!unit.has_answered && unit.state != presence::missing) {
        unit.state = presence::missing;
        unit.since = now;
        tell(change_kind::lost, unit, now);
    }
    if (unit.has_answered && unit.told_requests != requests_text(unit)) {
        unit.told_requests = requests_text(unit);
        tell(change_kind::other_requests, unit, now);
    }
}

void fleet::note_call(moment now, const std::set<std::uint32_t> &not_called) {
    last_call_ = now;
    is_call_open_ = true;
    for (auto &[address, unit] : units_) {
        unit.is_called = !not_called.contains(address);
        unit.has_answered = false;
        unit.has_asked_for_date = false;
        unit.has_asked_for_settings = false;
    }
}

bool fleet::note_record(std::uint32_t address, const unit_record &record, moment now) {
    fleet_unit *unit = find_or_add(address, now.wall);
    if (unit == nullptr) {
        return false;
    }
    note_answer(*unit, now);
    note_board(*unit, record, now.wall);
    if (record.type == record_type::set_date_request) {
        unit->said.wants_date = unit->has_asked_for_date = true;
    } else if (record.type == record_type::settings_request) {
        unit->said.wants_settings = unit->has_asked_for_settings = true;
    }
    return true;
}

fleet_unit *fleet::find_or_add(std::uint32_t address, wall_time now) {
    const auto found = units_.find(address);
    if (found != units_.end()) {
        return &found->second;
    }
    if (units_.size() >= most_units) {
        return nullptr;
    }
    fleet_unit &unit = units_[address];
    unit.identity.address = address;
    unit.is_expected = !has_names_;
    unit.since = now;
    return &unit;
}

void fleet::note_answer(fleet_unit &unit, moment now) {
    if (is_call_open_ && unit.is_called && !unit.has_answered) {
        times_.add(std::chrono::duration<double>(now.steady - last_call_->steady).count());
    }
    unit.has_answered = true;
    unit.last_answer = now.wall;
}

void fleet::note_board(fleet_unit &unit, const unit_record &record, wall_time now) {
    const roll_answer before = unit.said;
    unit.said.hardware_address = record.hardware_address;
    if (record.type == record_type::rollcall_reply) {
        unit.said.version = record.version;
    }
    note_presence(unit, now);
    if (!before.hardware_address.empty() && before.hardware_address != unit.said.hardware_address) {
        tell(change_kind::other_board, unit, now);
    }
    if (before.version != 0 && before.version != unit.said.version) {
        tell(change_kind::other_version, unit, now);
    }
}

void fleet::note_presence(fleet_unit &unit, wall_time now) {
    if (unit.state == presence::present) {
        return;
    }
    const bool was_missing = unit.state == presence::missing;
    const wall_time before = std::exchange(unit.since, now);
    unit.state = presence::present;
    tell(was_missing ? change_kind::returned : change_kind::appeared, unit, now, before);
}

void fleet::tell(change_kind kind, const fleet_unit &unit, wall_time now, wall_time before) const {
    change_({kind, unit, now, before});
}

std::vector<const fleet_unit *> fleet::units() const {
    std::vector<const fleet_unit *> result;
    for (const std::uint32_t address : named_order_) {
        result.push_back(&units_.at(address));
    }
    for (const auto &[address, unit] : units_) {
        if (!has_names_ || !unit.is_expected) {
            result.push_back(&unit);
        }
    }
    return result;
}

std::string name_of(const fleet_unit &unit) {
    return unit.identity.name.empty() ? host_text(unit.identity.address) : unit.identity.name;
}

std::string requests_text(const fleet_unit &unit) {
    std::string text;
    for (const std::string &request : requests_of(unit.said)) {
        text += (text.empty() ? "" : ", ") + request;
    }
    return text;
}

fleet_tally tally_of(const fleet &units) {
    fleet_tally tally;
    for (const fleet_unit *unit : units.units()) {
        tally.expected += unit->is_expected ? 1 : 0;
        tally.unknown += unit->is_expected ? 0 : 1;
        tally.present += unit->is_expected && unit->state == presence::present ? 1 : 0;
        tally.missing += unit->state == presence::missing ? 1 : 0;
        tally.awaited += unit->state == presence::awaited ? 1 : 0;
    }
    return tally;
}
