#include "hdtv/startup.h"

#include "service_test.h"

#include "hdtv/clock.h"
#include "hdtv/health.h"
#include "hdtv/tcp_channel.h"
#include "hdtv/udp_channel.h"

#include <cstring>
#include <fcntl.h>

namespace {

using fake::state;

class startup : public service_test {
  protected:
    void SetUp() override {
        service_test::SetUp();
        state.files["/dev/tty0"] = state.files["/dev/watchdog"] = "";
        have_address("10.87.33.50");
        state.failing = {"connect 10.87.33.1:3128"}; // no proxy
    }

    static int run(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), "hdtv");
        std::vector<char *> argv;
        for (std::string &argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        return run_service(static_cast<int>(argv.size()) - 1, argv.data());
    }

    static bool has_call(const std::string &prefix) {
        return !state.calls_of(prefix).empty();
    }

    static std::string idle_text() {
        return member("alert_area");
    }
};

TEST_F(startup, runs_strictly_in_order) {
    have_config(R"({"comm_gw":"10.87.33.20","rotation":"90"})");
    EXPECT_EQ(run(), 0);
    const std::string read_config = "stat /var/www/config.json";
    const std::vector<std::string> order = {
        "signal 13 ignored",
        "signal 17 default",
        "open /dev/tty0 " + std::to_string(O_RDONLY),
        "KDSETMODE 0",
        "open /dev/watchdog",
        "event_init",
        "cec vchi_initialise",
        "cec send 0: 8F",
        "cec active source 1000",
        "socket tcp",
        "bind 1002 0.0.0.0:4000",
        "listen 1002 0",
        "socket udp",
        "bind 1003 0.0.0.0:4000",
        read_config,
        "SIOCGIFCONF",
        "connect 10.87.33.1:3128",
        "open /dev/shm/alerts.json",
        read_config,
        "connect 10.87.33.20:5000",
        "write",
        "event_set -1 0",
        "event_add 5 s",
        "event_set 1002 18",
        "event_add",
        "event_set 1003 18",
        "event_add",
        "event_set -1 0",
        "event_add 1 s",
        "event_set -1 0",
        "event_add 30 s",
        read_config,
        "fork",
        "event_dispatch",
    };
    auto position = state.calls.begin();
    for (const std::string &step : order) {
        position = std::find_if(position, state.calls.end(),
                                [&](const std::string &call) { return call.starts_with(step); });
        ASSERT_NE(position, state.calls.end()) << "missing or out of order: " << step;
        ++position;
    }
    EXPECT_EQ(position, state.calls.end()) << "nothing comes after the event loop";
}

TEST_F(startup, registers_its_events_in_order) {
    run();
    ASSERT_EQ(state.events.size(), 5U);
    const auto expect_event = [](const fake::registered_event &event, int fd, short flags,
                                 void (*callback)(int, short, void *)) {
        EXPECT_EQ(event.fd, fd);
        EXPECT_EQ(event.flags, flags);
        EXPECT_EQ(event.callback, callback);
        EXPECT_EQ(event.argument, nullptr);
        EXPECT_EQ(event.has_timeout, fd == -1);
    };
    expect_event(state.events[0], -1, 0, power_fn);
    expect_event(state.events[1], 1002, 18, connect_fn);
    expect_event(state.events[2], 1003, 18, rollcall_fn);
    expect_event(state.events[3], -1, 0, clock_fn);
    expect_event(state.events[4], -1, 0, fb_time_fn);
}

TEST_F(startup, keeps_watchdog_and_sockets_out_of_its_children) {
    run();
    EXPECT_EQ(state.calls_of("close-on-exec"),
              (std::vector<std::string>{"close-on-exec 1001", "close-on-exec 1002",
                                        "close-on-exec 1003"}));
}

TEST_F(startup, version_option_prints_it_and_ends) {
    EXPECT_EQ(run({"-v"}), 0);
    EXPECT_EQ(output(), "PERIPHERAL_VERSION: " + std::to_string(wire::version) + "\n");
    EXPECT_TRUE(state.calls.empty());
}

TEST_F(startup, version_option_wins_over_further_arguments) {
    EXPECT_EQ(run({"-v", "--nonsense"}), 0);
    EXPECT_EQ(output(), "PERIPHERAL_VERSION: " + std::to_string(wire::version) + "\n");
}

TEST_F(startup, any_other_option_is_an_error) {
    for (const char *option : {"-h", "--version", "-V", "-vv", ""}) {
        EXPECT_EQ(run({option, "-v"}), 1);
    }
    EXPECT_EQ(output(), "Error: Unrecognized Option \"-h\"\n"
                        "Error: Unrecognized Option \"--version\"\n"
                        "Error: Unrecognized Option \"-V\"\n"
                        "Error: Unrecognized Option \"-vv\"\n"
                        "Error: Unrecognized Option \"\"\n");
    EXPECT_TRUE(state.calls.empty());
}

TEST_F(startup, without_a_console_ends_before_anything_else) {
    state.files.clear();
    EXPECT_EQ(run(), 1);
    EXPECT_EQ(output(), "Can't open console");
    EXPECT_FALSE(has_call("event_init"));
    EXPECT_FALSE(has_call("socket"));
    EXPECT_FALSE(has_call("fork"));
}

TEST_F(startup, goes_on_without_a_television) {
    recording_port::reset({.initialise_result = -1});
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(output().substr(0, output().find('\n')), "failed to open vchiq instance");
    EXPECT_TRUE(has_call("event_dispatch"));
}

TEST_F(startup, says_which_channel_is_dead_and_registers_what_it_got) {
    captured_output errors(stderr);
    state.failing.insert(state.failing.end(), {"socket tcp", "socket udp", "bind", "listen"});
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(errors.text(), "hdtv: cannot create the TCP socket: Too many open files\n"
                             "hdtv: cannot create the UDP socket: Too many open files\n");
    ASSERT_EQ(state.events.size(), 5U);
    EXPECT_EQ(state.events[1].fd, -1);
    EXPECT_EQ(state.events[2].fd, -1);
    EXPECT_TRUE(has_call("event_dispatch"));
}

TEST_F(startup, says_which_port_it_did_not_get_and_goes_on) {
    captured_output errors(stderr);
    state.failing.insert(state.failing.end(), {"bind", "listen"});
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(errors.text(), "hdtv: cannot bind TCP port 4000: Address already in use\n"
                             "hdtv: cannot listen on TCP port 4000: Address already in use\n"
                             "hdtv: cannot bind UDP port 4000: Address already in use\n");
    EXPECT_EQ(state.events.size(), 5U);
}

TEST_F(startup, says_what_the_event_loop_does_not_take_and_goes_on) {
    captured_output errors(stderr);
    state.failing.insert(state.failing.end(), {"event_add", "event_dispatch"});
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(errors.text(), "hdtv: cannot arm a timer: Cannot allocate memory\n"
                             "hdtv: cannot watch the TCP channel: Cannot allocate memory\n"
                             "hdtv: cannot watch the UDP channel: Cannot allocate memory\n"
                             "hdtv: cannot arm a timer: Cannot allocate memory\n"
                             "hdtv: cannot arm a timer: Cannot allocate memory\n"
                             "hdtv: the event loop has ended: Cannot allocate memory\n");
    EXPECT_TRUE(has_call("fork"));
}

TEST_F(startup, says_nothing_on_standard_error_when_all_is_well) {
    captured_output errors(stderr);
    run();
    EXPECT_EQ(errors.text(), "");
}

TEST_F(startup, goes_on_without_a_watchdog) {
    state.files.erase("/dev/watchdog");
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(output().starts_with("Can't open /dev/watchdog\n"));
    EXPECT_TRUE(has_call("event_dispatch"));
}

TEST_F(startup, clears_the_unit_list) {
    std::memset(unit_str, 'x', sizeof unit_str);
    run();
    EXPECT_EQ(std::count(std::begin(unit_str), std::end(unit_str), '\0'), 4096);
}

TEST_F(startup, without_a_configuration_keeps_the_defaults) {
    for (const char *config : {"", "{}", "not json at all"}) {
        have_config(config);
        rotation = 0;
        EXPECT_EQ(run(), 0);
        EXPECT_TRUE(log_alerts);
        EXPECT_EQ(rotation, 0);
        EXPECT_FALSE(has_call("connect 0.0.0.0"));
        EXPECT_TRUE(state.sent.empty());
    }
    EXPECT_EQ(output().find("Extracted"), std::string::npos);
}

TEST_F(startup, log_alerts_false_leaves_logging_on) {
    have_config(R"({"log_alerts":"false"})");
    run();
    EXPECT_TRUE(log_alerts);
    EXPECT_TRUE(state.files.contains("/tmp/alerts.log"));
}

TEST_F(startup, log_alerts_true_counts_in_any_case) {
    for (const char *value : {"true", "TRUE", "True"}) {
        have_config(std::string(R"({"log_alerts":")") + value + R"("})");
        log_alerts = false;
        run();
        EXPECT_TRUE(log_alerts) << value;
    }
    have_config(R"({"log_alerts":"yes"})");
    log_alerts = false;
    run();
    EXPECT_FALSE(log_alerts);
}

TEST_F(startup, with_an_address_shows_it_and_starts_no_dhcp_client) {
    run();
    EXPECT_TRUE(has_ip_address);
    EXPECT_EQ(idle_text(), "10.87.33.50");
    EXPECT_EQ(member("alert_type"), "display_alert");
    EXPECT_EQ(member("show_turnout_timer"), "0");
    EXPECT_EQ(member("alert_time"), "0");
    EXPECT_EQ(udhcpc_pid, 0);
    EXPECT_EQ(state.calls_of("fork").size(), 1U); // the browser
}

TEST_F(startup, without_an_address_says_so_and_starts_the_dhcp_client) {
    have_address("");
    run();
    EXPECT_FALSE(has_ip_address);
    EXPECT_EQ(idle_text(), "No Network Connection");
    EXPECT_EQ(state.calls_of("fork").size(), 3U); // killall, the client, the browser
    EXPECT_EQ(udhcpc_pid, 101);
    EXPECT_FALSE(has_call("connect"));
}

TEST_F(startup, proxy_that_answers_is_used) {
    state.failing.clear();
    run();
    EXPECT_TRUE(use_oru_proxy);
    EXPECT_NE(output().find("Proxy listening on 10.87.33.1:3128\n"), std::string::npos);
}

TEST_F(startup, address_that_only_contains_the_gateway_network_is_not_probed) {
    state.failing.clear();
    have_address("110.87.33.4");
    run();
    EXPECT_FALSE(use_oru_proxy);
    EXPECT_FALSE(has_call("connect"));
}

TEST_F(startup, sends_the_gratuitous_rollcall_reply_to_comm_gw) {
    have_config(R"({"comm_gw":"10.87.33.21"})");
    run();
    EXPECT_NE(output().find("Extracted comm_gw: 10.87.33.21, sending gratuitous rollcall reply\n"),
              std::string::npos);
    EXPECT_TRUE(has_call("connect 10.87.33.21:5000"));
    EXPECT_EQ(state.sent,
              std::vector<std::string>{std::string("\x02\x00\x11\x22\xAA\xBB\xCC\x0C\x2F", 9)});
}

TEST_F(startup, comm_gw_that_refuses_is_skipped_and_the_event_still_registered) {
    have_config(R"({"comm_gw":"10.87.33.21"})");
    state.failing.emplace_back("connect 10.87.33.21");
    run();
    EXPECT_TRUE(state.sent.empty());
    const auto connect =
        std::find(state.calls.begin(), state.calls.end(), "connect 10.87.33.21:5000");
    ASSERT_NE(connect, state.calls.end());
    EXPECT_TRUE((connect + 1)->starts_with("close ")) << *(connect + 1);
    EXPECT_EQ(state.events.size(), 5U);
}

TEST_F(startup, comm_gw_that_is_no_address_leaves_0_0_0_0_in_place) {
    for (const char *value : {"gateway.local", "", "10.87.33", "10.87.33.256"}) {
        have_config(std::string(R"({"comm_gw":")") + value + R"("})");
        state.calls.clear();
        run();
        EXPECT_TRUE(has_call("connect 0.0.0.0:5000")) << value;
    }
    EXPECT_NE(output().find("Extracted comm_gw: gateway.local, sending"), std::string::npos);
}

TEST_F(startup, rotation_is_one_of_three_exact_texts_or_0) {
    const std::vector<std::pair<std::string, int>> values = {
        {"90", 90}, {"180", 180}, {"270", 270}, {"0", 0},  {"90 ", 0}, {"090", 0},
        {"", 0},    {"360", 0},   {"-90", 0},   {"27", 0}, {"2700", 0}};
    for (const auto &[value, degrees] : values) {
        have_config("{\"rotation\":\"" + value + "\"}");
        rotation = 42;
        run();
        EXPECT_EQ(rotation, degrees) << value;
    }
}

TEST_F(startup, starts_the_browser_on_the_station_page_last_of_all) {
    have_config(R"({"rotation":"90"})");
    run();
    EXPECT_EQ(biseqcstr(url, "http://127.0.0.1/station_web/"), 1);
    EXPECT_EQ(state.calls.end()[-2], "fork");
    EXPECT_EQ(state.calls.end()[-1], "event_dispatch");
    EXPECT_EQ(kiosk_pid, 100);
}

} // namespace
