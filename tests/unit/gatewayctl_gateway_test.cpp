// The gateway's own side: what units send, and what they are answered.

#include "tools/gatewayctl/channel.h"
#include "tools/gatewayctl/desk.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/inbox.h"
#include "tools/gatewayctl/roll_call.h"
#include "tools/gatewayctl/say.h"
#include "tools/gatewayctl/serve.h"

#include "own_network.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;

constexpr std::chrono::seconds long_time(60);

const bytes date_request = {39, 2, 0, 0, 0, 0, 1};
const bytes settings_request = {47, 2, 0, 0, 0, 0, 1};
const bytes reply = {2, 2, 0, 0, 0, 0, 1, 12, 47};

std::string said_by(const std::function<void()> &act) {
    testing::internal::CaptureStdout();
    act();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

/// A gateway without its main loop.
class gateway : public testing::Test {
  protected:
    // One wait and what follows.
    void step() {
        poll_set events(clock_type::now() + long_time);
        inbox.watch(events, desk.has_room());
        desk.watch(events);
        events.wait();
        desk.end_answers(events);
        inbox.advance(events, [this](const sockaddr_in &from, std::span<const std::uint8_t> sent) {
            arrived.push_back(host_text(from));
            desk.take(from, sent);
        });
        desk.serve_visitors();
    }

    void step_until(const std::function<bool()> &is_done) {
        while (!is_done()) {
            step();
        }
    }

    void step_until_arrived(std::size_t count) {
        step_until([this, count] { return arrived.size() >= count; });
    }

    own_network network;
    shortage lack{[] {}};
    record_inbox inbox{lack};
    desk_settings settings{90, long_time};
    answer_desk desk{settings, lack};
    std::vector<std::string> arrived; // from where
};

TEST_F(gateway, answers_what_a_unit_asks_for_in_order) {
    const network_unit unit(2);
    std::string date, rotation;
    std::thread takes([&] {
        date = unit.take();
        rotation = unit.take();
        unit.send_record(reply); // it has taken everything
    });
    const std::string said = said_by([&] {
        unit.send_record(date_request);
        unit.send_record(settings_request);
        step_until_arrived(3);
    });
    takes.join();
    EXPECT_TRUE(date.starts_with("\x28@")) << date;
    EXPECT_EQ(rotation, "\x31\x01");
    EXPECT_LT(said.find("asks for the date (02:00:00:00:00:01)\n"),
              said.find("has taken the date\n"));
    EXPECT_LT(said.find("has taken the date\n"), said.find("asks for its settings ("));
}

TEST_F(gateway, tells_what_arrives) {
    const network_unit unit(2);
    const std::string said = said_by([&] {
        unit.send_record(reply);
        unit.send_record({1, 2});
        step_until_arrived(2);
    });
    EXPECT_NE(said.find("is up, version 47 (02:00:00:00:00:01)\n"), std::string::npos) << said;
    EXPECT_NE(said.find("sent an invalid record: 01 02\n"), std::string::npos) << said;
}

TEST_F(gateway, gives_up_a_unit_that_refuses_its_answer) {
    network_unit unit(2);
    const network_unit other(3);
    unit.commands = descriptor_owner();
    const std::string said = said_by([&] {
        unit.send_record(settings_request);
        step_until_arrived(1);
        other.send_record(reply); // meanwhile the refusal has come, too
        step_until_arrived(2);
    });
    EXPECT_NE(said.find("could not be sent the rotation 90: cannot connect to " + unit.host),
              std::string::npos)
        << said;
}

TEST_F(gateway, drops_what_a_unit_sends_too_fast) {
    const network_unit unit(2); // takes nothing
    const std::string said = said_by([&] {
        for (std::size_t i = 0; i < 18; ++i) {
            unit.send_record(date_request);
            step_until_arrived(i + 1);
        }
    });
    EXPECT_NE(said.find("sends requests faster than it takes answers: a record is dropped\n"),
              std::string::npos)
        << said;
}

TEST_F(gateway, takes_what_many_units_send_at_once) {
    constexpr std::size_t count = 200;
    const network_unit unit(2);
    std::list<descriptor_owner> connections;
    for (std::size_t i = 0; i < count; ++i) { // all of them wait to be accepted
        connections.push_back(unit.connect_to_gateway());
    }
    step(); // all are accepted at once
    for (const descriptor_owner &connection : connections) {
        EXPECT_EQ(send(connection.get(), reply.data(), reply.size(), 0), 9);
    }
    connections.clear();
    std::size_t steps = 0;
    said_by([&] {
        while (arrived.size() < count) {
            step();
            ++steps;
        }
    });
    EXPECT_LT(steps, count / 2);
}

TEST_F(gateway, drops_the_connection_that_is_silent_for_longest) {
    const network_unit unit(2);
    std::list<descriptor_owner> connections;
    for (std::size_t i = 0; i < 257; ++i) {
        connections.push_back(unit.connect_to_gateway());
        step();
    }
    char byte = 0;
    EXPECT_EQ(recv(connections.front().get(), &byte, 1, MSG_DONTWAIT), 0);
    EXPECT_EQ(recv(connections.back().get(), &byte, 1, MSG_DONTWAIT), -1);
}

TEST_F(gateway, has_the_record_port_of_its_address_to_itself) {
    try {
        const record_inbox second(lack);
        FAIL();
    } catch (const run_failure &failure) {
        EXPECT_EQ(failure.what(), "port 5000 of " + own_network::address(1) +
                                      " is in use: another gateway is running on this machine");
    }
    use_own_address(own_network::address(9));
    const record_inbox neighbor(lack); // does not throw
}

TEST(own_address, is_where_everything_comes_from) {
    const own_network network;
    const network_unit unit(2), datagrams(3, SOCK_DGRAM);
    exchange sending(open_socket(exchange::socket_type), resolve(unit.host), {1},
                     clock_type::now() + long_time);
    sending.start();
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const descriptor_owner connection(
        accept(unit.commands.get(), reinterpret_cast<sockaddr *>(&from), &size));
    EXPECT_EQ(host_text(from), own_network::address(1));
    send_over_udp(resolve(datagrams.host), {1});
    char byte = 0;
    recvfrom(datagrams.commands.get(), &byte, 1, 0, reinterpret_cast<sockaddr *>(&from), &size);
    EXPECT_EQ(host_text(from), own_network::address(1));
}

TEST(own_address, is_one_of_this_machine) {
    EXPECT_THROW(use_own_address("127.0.0.1:5000"), usage_failure);
    use_own_address("192.0.2.1"); // of no machine at all
    EXPECT_THROW(send_over_udp(resolve("127.0.0.1"), {1}), run_failure);
    use_own_address("0.0.0.0");
}

TEST(say, prints_the_time_and_who_it_is_about) {
    EXPECT_TRUE(std::regex_match(said_by([] { say("10.0.0.1", "is here"); }),
                                 std::regex("\\d\\d:\\d\\d:\\d\\d\\.\\d{3}  10\\.0\\.0\\.1 {7}  "
                                            "is here\n")));
}

// In a process of its own, which the signal ends.
TEST(serve, calls_the_roll_and_answers_until_it_is_told_to_end) {
    const auto run = [] {
        const own_network network;
        const network_unit unit(2), called(2, SOCK_DGRAM);
        std::thread world([&] {
            char byte = 0;
            recv(called.commands.get(), &byte, 1, 0);
            EXPECT_EQ(byte, 1);
            unit.send_record(settings_request);
            EXPECT_EQ(unit.take(), std::string("\x31\0", 2));
            kill(getpid(), SIGTERM);
        });
        serve_settings settings;
        settings.desk.timeout = long_time;
        settings.roll_call = resolve(unit.host);
        settings.every = long_time;
        serve(settings);
        world.join();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

// The roll call itself; what comes of the answers is tested beside this.

roll_call_settings calling(const network_unit &unit) {
    roll_call_settings settings;
    settings.to = {resolve(unit.host)};
    settings.wait = std::chrono::seconds(1);
    return settings;
}

TEST(roll_call, lists_who_answers_and_who_does_not) {
    const own_network network;
    const network_unit unit(2, SOCK_DGRAM);
    const std::string file = testing::TempDir() + "gatewayctl_saved";
    roll_call_settings settings = calling(unit);
    settings.to.clear();
    settings.expected = {{{"a", unit.host, "north"},
                          {"b", own_network::address(3), "south"},
                          {"c", "no-such-unit.invalid", "south"}},
                         {"b", "c"}};
    settings.each = settings.expected->units;
    settings.failed_file = testing::TempDir() + "gatewayctl_missing";
    settings.save_file = file;
    std::thread world([&unit] {
        char byte = 0;
        recv(unit.commands.get(), &byte, 1, 0);
        unit.send_record(reply);
    });
    int status = 0;
    testing::internal::CaptureStderr();
    const std::string said = said_by([&] { status = call_roll(settings); });
    world.join();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("warning: c: cannot resolve"),
              std::string::npos);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(said.find("\npresent"), std::string::npos) << "of another group";
    EXPECT_TRUE(said.ends_with("0 of 2 present, 2 missing\n")) << said;
    const auto saved = read_inventory(file);
    ASSERT_EQ(saved.size(), 3U);
    EXPECT_EQ(saved[0].hardware_address, "02:00:00:00:00:01");
    std::remove(file.c_str());
    const auto missing = read_inventory(settings.failed_file);
    ASSERT_EQ(missing.size(), 2U);
    EXPECT_EQ(missing[0].name, "b");
    std::remove(settings.failed_file.c_str());
}

TEST(roll_call, saves_nothing_where_nobody_answers) {
    const own_network network;
    const network_unit unit(2, SOCK_DGRAM);
    const std::string file = testing::TempDir() + "gatewayctl_kept";
    std::ofstream(file) << "# kept\n";
    roll_call_settings settings = calling(unit);
    settings.wait = std::chrono::milliseconds(1);
    settings.save_file = file;
    testing::internal::CaptureStderr();
    EXPECT_EQ(call_roll(settings), 1);
    testing::internal::GetCapturedStderr();
    std::string line;
    std::getline(std::ifstream(file), line);
    EXPECT_EQ(line, "# kept");
    std::remove(file.c_str());
}

TEST(roll_call, tells_who_has_lost_its_address) {
    const own_network network;
    const network_unit unit(2, SOCK_DGRAM);
    roll_call_settings settings = calling(unit);
    settings.expected = {
        {{"a", unit.host, ""}, {"b", own_network::address(3), "", "02:00:00:00:00:01"}}, {"b"}};
    settings.save_file = testing::TempDir() + "gatewayctl_lost";
    std::thread world([&unit] {
        char byte = 0;
        recv(unit.commands.get(), &byte, 1, 0);
        unit.send_record(reply);
    });
    testing::internal::CaptureStderr();
    EXPECT_NE(said_by([&] { EXPECT_EQ(call_roll(settings), 1); }).find("moved"), std::string::npos);
    world.join();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "gatewayctl: warning: a: another unit answers at its address " + unit.host +
                  ", so its line is saved as a comment\n");
    std::remove(settings.save_file.c_str());
}

TEST(roll_call, tells_that_nobody_answers) {
    const own_network network;
    const network_unit unit(2, SOCK_DGRAM);
    roll_call_settings settings = calling(unit);
    settings.wait = std::chrono::milliseconds(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(said_by([&] { EXPECT_EQ(call_roll(settings), 1); }), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "gatewayctl: no unit answered the roll call to " + unit.host + ":4000\n");
}

} // namespace
