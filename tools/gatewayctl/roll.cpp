#include "tools/gatewayctl/roll.h"

#include "tools/gatewayctl/address.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace {

/// Matches expected units with answers, each of them once.
class matching {
  public:
    matching(const std::vector<expected_unit> &expected, const std::vector<roll_answer> &answers)
        : answers_(answers), is_used_(answers.size()) {
        for (const expected_unit &unit : expected) {
            entries_.push_back({roll_state::missing, unit, {}});
        }
    }

    std::vector<roll_entry> take() {
        // Those that are where they should be come first, then those that are known wherever they are.
        match(roll_state::present, [](const expected_unit &unit, const roll_answer &answer) {
            return has_hardware_address(unit, answer) && has_address(unit, answer);
        });
        match(roll_state::moved, has_hardware_address);
        match(roll_state::present, [](const expected_unit &unit, const roll_answer &answer) {
            return unit.unit.hardware_address.empty() && has_address(unit, answer);
        });
        match(roll_state::replaced, has_address);
        add_unknown();
        return std::move(entries_);
    }

  private:
    static bool has_address(const expected_unit &unit, const roll_answer &answer) {
        return unit.address == answer.address;
    }
    static bool has_hardware_address(const expected_unit &unit, const roll_answer &answer) {
        return unit.unit.hardware_address == answer.hardware_address;
    }

    template <class function> void match(roll_state state, function &&is_match) {
        for (roll_entry &entry : entries_) {
            for (std::size_t i = 0; i < answers_.size() && !entry.answer; ++i) {
                if (!is_used_[i] && is_match(*entry.expected, answers_[i])) {
                    entry.state = state;
                    entry.answer = answers_[i];
                    is_used_[i] = true;
                }
            }
        }
    }

    void add_unknown() {
        for (std::size_t i = 0; i < answers_.size(); ++i) {
            if (!is_used_[i]) {
                entries_.push_back({roll_state::unknown, {}, answers_[i]});
            }
        }
    }

    const std::vector<roll_answer> &answers_;
    std::vector<bool> is_used_;
    std::vector<roll_entry> entries_;
};

std::string duplicate_line(const std::string &what, const std::string &value,
                           const std::vector<std::string> &others) {
    std::string line =
        what + " " + value + " is in " + std::to_string(others.size()) + " answers, of ";
    for (const std::string &other : others) {
        line += &other == &others.front() ? "" : ", ";
        line += other;
    }
    return line;
}

void add_duplicates(std::vector<std::string> &lines, const std::string &what,
                    const std::map<std::string, std::vector<std::string>> &values) {
    for (const auto &[value, others] : values) {
        if (others.size() > 1) {
            lines.push_back(duplicate_line(what, value, others));
        }
    }
}

// At its new address, with the port that it had.
std::string moved_address(const std::string &before, std::uint32_t address) {
    const std::size_t colon = before.find(':');
    return host_text(address) + (colon == std::string::npos ? "" : before.substr(colon));
}

inventory_unit updated(const roll_entry &entry) {
    if (!entry.answer) {
        return entry.expected->unit;
    }
    const std::string address = host_text(entry.answer->address);
    inventory_unit unit =
        entry.expected ? entry.expected->unit : inventory_unit{address, address, {}};
    if (entry.state == roll_state::moved) {
        unit.address = moved_address(unit.address, entry.answer->address);
    }
    unit.hardware_address = entry.answer->hardware_address;
    return unit;
}

/// Gives each name, address and hardware address to one unit.
class updating {
  public:
    explicit updating(const std::vector<roll_entry> &entries) {
        for (const roll_entry &entry : entries) {
            units_.push_back({updated(entry)});
            is_known_.push_back(entry.expected.has_value());
            has_answered_.push_back(entry.answer.has_value());
        }
    }

    std::vector<updated_unit> take() {
        // Those that have answered come first: what is missing may have lost its address to them.
        for (const bool has_answered : {true, false}) {
            for (std::size_t i = 0; i < units_.size(); ++i) {
                if (has_answered_[i] == has_answered) {
                    claim(units_[i]);
                }
            }
        }
        std::vector<updated_unit> kept;
        for (std::size_t i = 0; i < units_.size(); ++i) {
            if (is_known_[i] || !units_[i].has_lost_address) {
                kept.push_back(units_[i]);
                give_name(kept.back().unit);
            }
        }
        return kept;
    }

  private:
    void claim(updated_unit &one) {
        one.has_lost_address = !seen_.insert(with_port(one.unit.address)).second;
        std::string &hardware_address = one.unit.hardware_address;
        if (!hardware_address.empty() && !one.has_lost_address &&
            !seen_.insert(hardware_address).second) {
            hardware_address.clear();
        }
    }

    // The expected units come first and keep theirs.
    void give_name(inventory_unit &unit) {
        const std::string name = unit.name;
        for (int number = 2; !names_.insert(unit.name).second; ++number) {
            unit.name = name + "-" + std::to_string(number);
        }
    }

    std::vector<updated_unit> units_;
    std::vector<bool> is_known_, has_answered_;
    std::set<std::string> seen_; // addresses and hardware addresses look different
    std::set<std::string> names_;
};

} // namespace

void roll_answers::note(std::uint32_t address, const unit_record &record) {
    roll_answer &known = answers_[{address, record.hardware_address}];
    known.address = address;
    known.hardware_address = record.hardware_address;
    switch (record.type) {
    case record_type::rollcall_reply:
        known.version = record.version;
        break;
    case record_type::set_date_request:
        known.wants_date = true;
        break;
    case record_type::settings_request:
        known.wants_settings = true;
        break;
    }
}

std::vector<roll_answer> roll_answers::all() const {
    std::vector<roll_answer> all;
    std::ranges::transform(answers_, std::back_inserter(all),
                           [](const auto &known) { return known.second; });
    return all;
}

std::vector<std::string> requests_of(const roll_answer &answer) {
    std::vector<std::string> requests;
    if (answer.wants_date) {
        requests.emplace_back("date");
    }
    if (answer.wants_settings) {
        requests.emplace_back("settings");
    }
    return requests;
}

const char *to_text(roll_state state) {
    switch (state) {
    case roll_state::present:
        return "present";
    case roll_state::replaced:
        return "replaced";
    case roll_state::moved:
        return "moved";
    case roll_state::missing:
        return "missing";
    case roll_state::unknown:
        break;
    }
    return "unknown";
}

std::vector<roll_entry> compare(const std::vector<expected_unit> &expected,
                                const std::vector<roll_answer> &answers) {
    return matching(expected, answers).take();
}

std::vector<std::string> duplicates_in(const std::vector<roll_answer> &answers) {
    std::map<std::string, std::vector<std::string>> by_address;
    std::map<std::string, std::vector<std::string>> by_hardware;
    for (const roll_answer &answer : answers) {
        const std::string address = host_text(answer.address);
        by_address[address].push_back(answer.hardware_address);
        by_hardware[answer.hardware_address].push_back(address);
    }
    std::vector<std::string> lines;
    add_duplicates(lines, "the address", by_address);
    add_duplicates(lines, "the hardware address", by_hardware);
    return lines;
}

std::vector<std::string> duplicates_of(const roll_answer &answer,
                                       const std::vector<roll_answer> &answers) {
    std::vector<std::string> members;
    if (std::ranges::count(answers, answer.address, &roll_answer::address) > 1) {
        members.emplace_back("address");
    }
    if (std::ranges::count(answers, answer.hardware_address, &roll_answer::hardware_address) > 1) {
        members.emplace_back("hardware_address");
    }
    return members;
}

std::vector<updated_unit> updated_inventory(const std::vector<roll_entry> &entries) {
    return updating(entries).take();
}

std::string to_text(const std::vector<updated_unit> &units) {
    std::string text;
    for (const auto &[unit, has_lost_address] : units) {
        text += unit.above + (has_lost_address ? "# " : "") + to_text(unit) + "\n" + unit.below;
    }
    return text;
}
