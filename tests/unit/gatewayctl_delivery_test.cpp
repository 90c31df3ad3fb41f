// One message for many units, which are sockets on this machine's loopback.

#include "tools/gatewayctl/delivery.h"

#include "gatewayctl_test.h"
#include "loopback_unit.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::chrono::seconds long_time(60);
constexpr std::chrono::milliseconds short_time(20);

struct known_result {
    std::string name, address, failure;
    int attempts;
};

delivery_settings settings_with(std::chrono::milliseconds timeout, std::size_t parallel = 32,
                                int retries = 0) {
    delivery_settings settings;
    settings.timeout = timeout;
    settings.parallel = parallel;
    settings.retries = retries;
    settings.shortest_pause = settings.longest_pause = std::chrono::milliseconds(1);
    return settings;
}

inventory_unit named(const std::string &name, const loopback_unit &unit) {
    return {name, to_text(unit.address), {}};
}

std::vector<known_result> results_of(
    const std::vector<inventory_unit> &units, const delivery_settings &settings,
    const message_fn &make = [] { return bytes{1}; }) {
    std::vector<known_result> results;
    deliver(units, make, settings, [&results](const delivery_result &result) {
        results.push_back({result.unit.name, result.address, result.failure, result.attempts});
    });
    std::ranges::sort(results, {}, &known_result::name);
    return results;
}

// Accepts a connection, reads once and closes, as a unit does.
std::thread serve_once(const loopback_unit &unit, bytes &taken) {
    return std::thread([&] {
        const descriptor_owner connection = unit.accept();
        taken.resize(4095);
        const ssize_t size = recv(connection.get(), taken.data(), taken.size(), 0);
        taken.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    });
}

TEST(delivery, reaches_every_unit_and_tells_of_those_that_fail) {
    const loopback_unit well, rude, down;
    well.listen();
    rude.listen();
    bytes taken;
    std::thread service = serve_once(well, taken);
    std::thread other([&rude] { // closes without having read
        const descriptor_owner connection = rude.accept();
        char byte = 0;
        recv(connection.get(), &byte, 1, MSG_PEEK);
    });
    const auto results = results_of({named("rude", rude), named("down", down), named("well", well)},
                                    settings_with(long_time), [] {
                                        return bytes{7, 8};
                                    });
    service.join();
    other.join();
    ASSERT_EQ(results.size(), 3U);
    EXPECT_TRUE(results[0].failure.starts_with("cannot connect to"));
    EXPECT_TRUE(results[1].failure.ends_with("before it had read the whole message"));
    EXPECT_EQ(results[2].failure, "");
    EXPECT_EQ(results[2].address, to_text(well.address));
    EXPECT_EQ(taken, (bytes{7, 8}));
}

TEST(delivery, brings_a_message_whole) {
    const loopback_unit unit;
    unit.listen();
    bytes message(4095);
    for (std::size_t i = 0; i < message.size(); ++i) {
        message[i] = static_cast<std::uint8_t>(i % 251);
    }
    bytes taken;
    std::thread service = serve_once(unit, taken);
    const auto results =
        results_of({named("a", unit)}, settings_with(long_time), [&message] { return message; });
    service.join();
    EXPECT_EQ(results.at(0).failure, "");
    EXPECT_EQ(taken, message);
}

TEST(delivery, tells_why_it_fails) {
    const loopback_unit busy, down;
    busy.listen();
    const auto results =
        results_of({named("busy", busy), named("down", down)}, settings_with(short_time));
    EXPECT_EQ(results.at(0).failure,
              "the message was sent, but " + to_text(busy.address) +
                  " has not read it yet: the unit is busy, or something else is listening there");
    EXPECT_EQ(results.at(1).failure,
              "cannot connect to " + to_text(down.address) +
                  ": Connection refused (the machine is up, but the service is not running)");
}

TEST(delivery, does_not_wait_for_one_unit_before_it_sends_to_the_next) {
    const loopback_unit slow, quick;
    slow.listen();
    quick.listen();
    bytes taken;
    std::thread service = serve_once(quick, taken);
    std::thread slow_service; // which begins when the other one has been served
    std::vector<std::string> order;
    const auto report = [&](const delivery_result &result) {
        order.push_back(result.unit.name);
        if (order.size() == 1) {
            slow_service = serve_once(slow, taken);
        }
    };
    deliver(
        {named("slow", slow), named("quick", quick)}, [] { return bytes{1}; },
        settings_with(long_time), report);
    service.join();
    slow_service.join();
    EXPECT_EQ(order, (std::vector<std::string>{"quick", "slow"}));
}

TEST(delivery, sends_to_no_more_units_at_once_than_it_may) {
    const std::vector<loopback_unit> hanging(5);
    std::vector<inventory_unit> units;
    for (const loopback_unit &unit : hanging) {
        unit.listen();
        units.push_back(named(std::to_string(units.size()), unit));
    }
    std::size_t begun = 0, ended = 0, most = 0;
    const auto make = [&] {
        most = std::max(most, ++begun - ended);
        return bytes{1};
    };
    deliver(units, make, settings_with(short_time, 2), [&](const delivery_result &) { ++ended; });
    EXPECT_EQ(ended, 5U);
    EXPECT_EQ(most, 2U);
}

TEST(delivery, does_not_wait_for_the_proof_of_one_unit_before_it_sends_to_the_next) {
    const loopback_unit first, second;
    first.listen();
    second.listen();
    bytes taken[2];
    std::thread services[] = {serve_once(first, taken[0]), serve_once(second, taken[1])};
    std::size_t known = 0;
    std::vector<std::size_t> known_at_start;
    const auto make = [&] {
        known_at_start.push_back(known);
        return bytes{1};
    };
    deliver({named("first", first), named("second", second)}, make, settings_with(long_time, 1),
            [&known](const delivery_result &) { ++known; });
    for (std::thread &service : services) {
        service.join();
    }
    EXPECT_EQ(known_at_start, (std::vector<std::size_t>{0, 0}));
}

TEST(delivery, tries_again_as_often_as_it_may) {
    const loopback_unit down;
    int made = 0;
    const auto make = [&made] { return ++made, bytes{1}; };
    const auto results = results_of({named("down", down)}, settings_with(long_time, 1, 2), make);
    EXPECT_EQ(results.at(0).attempts, 3);
    EXPECT_TRUE(results[0].failure.starts_with("cannot connect to"));
    EXPECT_EQ(made, 3);
}

TEST(delivery, ends_with_the_attempt_that_succeeds) {
    const loopback_unit unit;
    bytes taken;
    std::thread service;
    int made = 0;
    const auto make = [&] {
        if (++made == 2) { // what was refused at first is taken now
            unit.listen();
            service = serve_once(unit, taken);
        }
        return bytes{static_cast<std::uint8_t>(made)};
    };
    const auto results = results_of({named("a", unit)}, settings_with(long_time, 1, 9), make);
    service.join();
    EXPECT_EQ(results.at(0).failure, "");
    EXPECT_EQ(results[0].attempts, 2);
    EXPECT_EQ(taken, bytes{2}) << "made anew for each attempt";
}

TEST(delivery, waits_before_it_tries_again) {
    const loopback_unit down;
    delivery_settings settings = settings_with(long_time, 1, 1);
    settings.shortest_pause = settings.longest_pause = short_time;
    const auto begin = clock_type::now();
    results_of({named("down", down)}, settings);
    EXPECT_GE(clock_type::now() - begin, short_time);
}

TEST(delivery, has_one_connection_to_a_unit) {
    const loopback_unit unit;
    unit.listen();
    bytes taken;
    std::thread service = serve_once(unit, taken);
    const auto results = results_of(
        {named("a", unit), {"b", "localhost:" + std::to_string(ntohs(unit.address.sin_port)), {}}},
        settings_with(long_time));
    service.join();
    EXPECT_EQ(results.at(0).failure, "");
    EXPECT_EQ(results.at(1).failure, "not sent: " + to_text(unit.address) + " is a, too");
}

TEST(delivery, waits_for_descriptors_where_others_are_in_use) {
    const std::vector<loopback_unit> hanging(3);
    std::vector<inventory_unit> units;
    for (const loopback_unit &unit : hanging) {
        unit.listen();
        units.push_back(named(std::to_string(units.size()), unit));
    }
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const int free_one = dup(hanging[0].socket_fd.get()); // the next one that is free
    close(free_one);
    const rlimit one_more{static_cast<rlim_t>(free_one) + 1, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &one_more);
    const auto results = results_of(units, settings_with(short_time));
    setrlimit(RLIMIT_NOFILE, &before);
    for (const known_result &result : results) {
        EXPECT_TRUE(result.failure.starts_with("the message was sent, but")) << result.failure;
        EXPECT_EQ(result.attempts, 1);
    }
}

TEST(delivery, tells_of_a_name_that_nobody_knows) {
    const auto results =
        results_of({{"a", "no-such-unit.invalid:4001", {}}}, settings_with(long_time));
    EXPECT_TRUE(results.at(0).failure.starts_with("cannot resolve \"no-such-unit.invalid\""));
    EXPECT_EQ(results[0].address, "no-such-unit.invalid:4001");
}

TEST(delivery, is_one_datagram_for_each_unit_over_udp) {
    const loopback_unit first(SOCK_DGRAM), second(SOCK_DGRAM);
    delivery_settings settings = settings_with(long_time);
    settings.via = channel::udp;
    const auto results = results_of({named("a", first), named("b", second)}, settings);
    EXPECT_EQ(results.at(0).failure + results.at(1).failure, "");
    for (const loopback_unit *unit : {&first, &second}) {
        char byte = 0;
        EXPECT_EQ(recv(unit->socket_fd.get(), &byte, 1, MSG_DONTWAIT), 1);
        EXPECT_EQ(recv(unit->socket_fd.get(), &byte, 1, MSG_DONTWAIT), -1);
    }
}

} // namespace
