#include "tools/gatewayctl/roll_call.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/inbox.h"
#include "tools/gatewayctl/inventory_file.h"
#include "tools/gatewayctl/output.h"
#include "tools/gatewayctl/records.h"
#include "tools/gatewayctl/roll.h"
#include "tools/gatewayctl/roll_print.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <cstdio>

namespace {

void warn(const std::string &words) {
    std::fprintf(stderr, "gatewayctl: warning: %s\n", printable(words).c_str());
}

std::vector<expected_unit> resolve_all(const std::vector<inventory_unit> &units) {
    std::vector<expected_unit> expected;
    for (const inventory_unit &unit : units) {
        expected.push_back({unit, std::nullopt});
        try {
            expected.back().address = ntohl(resolve(unit.address).sin_addr.s_addr);
        } catch (const run_failure &failure) {
            warn(unit.name + ": " + failure.what());
        }
    }
    return expected;
}

void call(const sockaddr_in &address) {
    send_over_udp(address, make_rollcall_request());
}

// One that cannot be called is missing in the end.
void call_each(const std::vector<inventory_unit> &units) {
    for (const inventory_unit &unit : units) {
        try {
            call(resolve(unit.address));
        } catch (const run_failure &failure) {
            warn(unit.name + ": " + failure.what());
        }
    }
}

std::vector<roll_answer> gather(record_inbox &inbox, std::chrono::milliseconds time) {
    roll_answers answers;
    const auto end = clock_type::now() + time;
    bool is_undisturbed = true;
    while (is_undisturbed && clock_type::now() < end) {
        poll_set events(end);
        inbox.watch(events);
        is_undisturbed = events.wait();
        inbox.advance(events,
                      [&answers](const sockaddr_in &from, std::span<const std::uint8_t> bytes) {
                          if (const auto record = parse_record(bytes)) {
                              answers.note(ntohl(from.sin_addr.s_addr), *record);
                          }
                      });
    }
    return answers.all();
}

// Without those of the inventory that are not reported on: they are known.
std::vector<roll_entry> reported(std::vector<roll_entry> entries,
                                 const std::set<std::string> &names) {
    std::erase_if(entries, [&names](const roll_entry &entry) {
        return entry.expected && !names.empty() && !names.contains(entry.expected->unit.name);
    });
    return entries;
}

std::vector<inventory_unit> missing_units(const std::vector<roll_entry> &entries) {
    std::vector<inventory_unit> missing;
    for (const roll_entry &entry : entries) {
        if (entry.state == roll_state::missing) {
            missing.push_back(entry.expected->unit);
        }
    }
    return missing;
}

void say_nobody(const std::vector<sockaddr_in> &called) {
    std::fprintf(stderr, "gatewayctl: no unit answered the roll call to %s\n",
                 called.size() == 1 ? to_text(called[0]).c_str() : "any of them");
}

std::vector<roll_answer> call_and_listen(const roll_call_settings &settings) {
    shortage lack(
        [] { std::fputs("gatewayctl: out of file descriptors, units have to wait\n", stderr); });
    record_inbox inbox(lack); // listen before calling
    std::ranges::for_each(settings.to, call);
    call_each(settings.each);
    return gather(inbox, settings.wait);
}

// Whether no expected unit is lost by it.
bool save(const inventory_file &file, const std::vector<roll_entry> &entries) {
    const std::vector<updated_unit> units = updated_inventory(entries);
    bool are_all_kept = true;
    for (const auto &[unit, has_lost_address] : units) {
        if (has_lost_address) {
            warn(unit.name + ": another unit answers at its address " + unit.address +
                 ", so its line is saved as a comment");
            are_all_kept = false;
        }
    }
    file.write(to_text(units));
    return are_all_kept;
}

void print(const roll_call_settings &settings, const std::vector<roll_entry> &entries,
           const std::vector<roll_answer> &answers) {
    if (settings.expected && !settings.lists_answers) {
        print_entries(entries, answers, settings.as_json);
    } else if (!answers.empty()) {
        print_answers(answers, settings.as_json);
    }
}

std::optional<inventory_file> file_if_wanted(const std::string &name) {
    return name.empty() ? std::nullopt : std::optional<inventory_file>(name);
}

} // namespace

int call_roll(const roll_call_settings &settings) {
    // What cannot be written is told before anybody is called.
    const auto save_file = file_if_wanted(settings.save_file);
    const auto failed_file = file_if_wanted(settings.failed_file);
    const roll_expectation expectation = settings.expected.value_or(roll_expectation());
    const std::vector<expected_unit> expected = resolve_all(expectation.units);
    const std::vector<roll_answer> answers = call_and_listen(settings);
    if (answers.empty()) {
        say_nobody(settings.to);
    }
    std::ranges::for_each(duplicates_in(answers), warn);
    const std::vector<roll_entry> entries = compare(expected, answers);
    const bool is_saved_whole = !save_file || answers.empty() || save(*save_file, entries);
    const std::vector<roll_entry> wanted = reported(entries, expectation.names);
    const std::vector<inventory_unit> missing = missing_units(wanted);
    if (failed_file) {
        failed_file->write(missing, "Units that have not answered a roll call: " +
                                        std::to_string(missing.size()));
    }
    if (settings.lists_answers && !missing.empty() && !answers.empty()) {
        warn(missing.front().name + " has not answered");
    }
    print(settings, wanted, answers);
    return written_status(missing.empty() && is_saved_whole && !answers.empty() ? 0 : 1);
}
