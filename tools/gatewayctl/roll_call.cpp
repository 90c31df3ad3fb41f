#include "tools/gatewayctl/roll_call.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/inbox.h"
#include "tools/gatewayctl/records.h"

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

struct answer {
    std::string hardware_address;
    int version = 0; // 0 while only its requests have arrived
    bool wants_date = false;
    bool wants_settings = false;
};

using answers_by_address = std::map<std::uint32_t, answer>;

void note(answer &known, const unit_record &record) {
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

std::vector<std::string> requests_of(const answer &known) {
    std::vector<std::string> requests;
    if (known.wants_date) {
        requests.emplace_back("date");
    }
    if (known.wants_settings) {
        requests.emplace_back("settings");
    }
    return requests;
}

std::string joined(const std::vector<std::string> &words, const char *quote) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : ", ") + (quote + word) + quote;
    }
    return text;
}

std::string address_text(std::uint32_t address) {
    sockaddr_in whole{};
    whole.sin_addr.s_addr = htonl(address);
    return host_text(whole);
}

void print_table(const answers_by_address &answers) {
    std::printf("%-15s  %-17s  %-7s  %s\n", "ADDRESS", "HARDWARE ADDRESS", "VERSION", "ASKS FOR");
    for (const auto &[address, known] : answers) {
        const std::string requests = joined(requests_of(known), "");
        std::printf("%-15s  %-17s  %-7d  %s\n", address_text(address).c_str(),
                    known.hardware_address.c_str(), known.version,
                    requests.empty() ? "-" : requests.c_str());
    }
}

void print_json(const answers_by_address &answers) {
    for (const auto &[address, known] : answers) {
        std::printf("{\"address\": \"%s\", \"hardware_address\": \"%s\", \"version\": %d, "
                    "\"asks_for\": [%s]}\n",
                    address_text(address).c_str(), known.hardware_address.c_str(), known.version,
                    joined(requests_of(known), "\"").c_str());
    }
}

void gather(record_inbox &inbox, std::chrono::milliseconds time, answers_by_address &answers) {
    const auto end = clock_type::now() + time;
    bool is_undisturbed = true;
    while (is_undisturbed && clock_type::now() < end) {
        poll_set events(end);
        inbox.watch(events);
        is_undisturbed = events.wait();
        inbox.advance(events,
                      [&answers](const sockaddr_in &from, std::span<const std::uint8_t> bytes) {
                          if (const auto record = parse_record(bytes)) {
                              note(answers[ntohl(from.sin_addr.s_addr)], *record);
                          }
                      });
    }
}

} // namespace

int call_roll(const std::vector<sockaddr_in> &to, std::chrono::milliseconds wait, bool as_json) {
    answers_by_address answers;
    shortage lack(
        [] { std::fputs("gatewayctl: out of file descriptors, units have to wait\n", stderr); });
    record_inbox inbox(lack); // listen before calling
    for (const sockaddr_in &address : to) {
        send_over_udp(address, make_rollcall_request());
    }
    gather(inbox, wait, answers);
    if (answers.empty()) {
        std::fprintf(stderr, "gatewayctl: no unit answered the roll call to %s\n",
                     to.size() == 1 ? to_text(to[0]).c_str() : "any of them");
        return 1;
    }
    as_json ? print_json(answers) : print_table(answers);
    return 0;
}
