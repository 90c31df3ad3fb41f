#include "tools/gatewayctl/roll_call.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/inbox.h"
#include "tools/gatewayctl/inventory_file.h"
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
void call_each(const std::vector<expected_unit> &expected) {
    for (const expected_unit &one : expected) {
        try {
            call(resolve(one.unit.address));
        } catch (const run_failure &failure) {
            warn(one.unit.name + ": " + failure.what());
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

// Without the inventory's units of other groups: they are known.
std::vector<roll_entry> of_group(std::vector<roll_entry> entries, const std::string &group) {
    std::erase_if(entries, [&group](const roll_entry &entry) {
        return entry.expected && !group.empty() && entry.expected->unit.group != group;
    });
    return entries;
}

bool has_missing(const std::vector<roll_entry> &entries) {
    return std::ranges::count(entries, roll_state::missing, &roll_entry::state) > 0;
}

void say_nobody(const std::vector<sockaddr_in> &called) {
    std::fprintf(stderr, "gatewayctl: no unit answered the roll call to %s\n",
                 called.size() == 1 ? to_text(called[0]).c_str() : "any of them");
}

} // namespace

int call_roll(const roll_call_settings &settings) {
    std::vector<expected_unit> expected;
    if (settings.expected) {
        expected = resolve_all(settings.expected->units);
    }
    shortage lack(
        [] { std::fputs("gatewayctl: out of file descriptors, units have to wait\n", stderr); });
    record_inbox inbox(lack); // listen before calling
    std::ranges::for_each(settings.to, call);
    if (settings.calls_each) {
        call_each(expected);
    }
    const std::vector<roll_answer> answers = gather(inbox, settings.wait);
    if (answers.empty()) {
        say_nobody(settings.to);
    }
    std::ranges::for_each(duplicates_in(answers), warn);
    const std::vector<roll_entry> entries = compare(expected, answers);
    if (!settings.save_file.empty()) {
        inventory_file(settings.save_file).write(updated_inventory(entries), "");
    }
    if (settings.expected) {
        const auto wanted = of_group(entries, settings.expected->group);
        print_entries(wanted, answers, settings.as_json);
        return has_missing(wanted) || answers.empty() ? 1 : 0;
    }
    if (!answers.empty()) {
        print_answers(answers, settings.as_json);
    }
    return answers.empty() ? 1 : 0;
}
