// The metrics: their text and their server.

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/metrics.h"
#include "tools/gatewayctl/metrics_server.h"
#include "tools/gatewayctl/socket.h"

#include "fleet_story.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <optional>
#include <sys/socket.h>

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t alpha = fleet_story::alpha;
constexpr std::uint32_t beta = fleet_story::beta;

std::string metrics_of(const fleet_story &story, const watch_counts &counts = {}) {
    return metrics_text(story.units, counts, 60s);
}

bool has_line(const std::string &text, const std::string &line) {
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

TEST(metrics, tell_of_units_that_are_there_and_that_are_not) {
    fleet_story story({{alpha, "alpha", "north"}, {beta, "beta", ""}});
    story.call();
    story.pass(7ms);
    story.answer(alpha);
    story.answer(alpha, record_type::set_date_request);
    story.answer(0x7f000001);
    const std::string text = metrics_of(story);
    const std::string of_alpha = R"({unit="alpha",group="north",address="10.87.51.50")";
    const std::string of_beta = R"({unit="beta",group="",address="10.87.51.51")";
    const std::string of_unknown = R"({unit="127.0.0.1",group="",address="127.0.0.1")";
    const std::string prefix = "station_display_";
    for (const std::string &line : {
             std::string("units_expected 2"),
             std::string("units_present 1"),
             std::string("units_unknown 1"),
             "unit_present" + of_alpha + "} 1",
             "unit_present" + of_beta + "} 0",
             "unit_last_answer_timestamp_seconds" + of_alpha + "} 1795320000.007",
             "unit_info" + of_alpha +
                 R"(,hardware_address="02:00:0a:57:21:32",version="47",expected="true"} 1)",
             "unit_info" + of_unknown +
                 R"(,hardware_address="02:00:0a:57:21:32",version="47",expected="false"} 1)",
             "unit_requests_outstanding" + of_alpha + R"(,request="date"} 1)",
             "unit_requests_outstanding" + of_alpha + R"(,request="settings"} 0)",
         }) {
        EXPECT_TRUE(has_line(text, prefix + line)) << line << "\n" << text;
    }
    EXPECT_EQ(text.find("unit_present" + of_unknown), std::string::npos);
    EXPECT_EQ(text.find("timestamp_seconds" + of_beta), std::string::npos);
    EXPECT_EQ(text.find("unit_info" + of_beta), std::string::npos);
    EXPECT_EQ(text.find("requests_outstanding" + of_beta), std::string::npos);
}

TEST(metrics, have_no_version_before_a_unit_has_told_it) {
    fleet_story story({{alpha, "alpha", ""}});
    story.call();
    story.answer(alpha, record_type::settings_request, "02:00:0a:57:21:32", 0);
    EXPECT_NE(metrics_of(story).find(",version=\"\",expected="), std::string::npos);
}

TEST(metrics, count_roll_calls_and_time_their_answers) {
    fleet_story story;
    EXPECT_EQ(metrics_of(story).find("last_roll_call_timestamp_seconds"), std::string::npos);
    story.call();
    story.pass(2ms);
    story.answer(alpha);
    story.pass(60s);
    story.answer(beta);
    const std::string text = metrics_of(story, {5, 6, 7});
    const std::string prefix = "station_display_";
    for (const char *line : {
             "last_roll_call_timestamp_seconds 1795320000",
             "roll_call_interval_seconds 60",
             "roll_calls_total 5",
             "roll_call_failures_total 6",
             "invalid_records_total 7",
             R"(roll_call_round_trip_seconds_bucket{le="0.001"} 0)",
             R"(roll_call_round_trip_seconds_bucket{le="0.0025"} 1)",
             R"(roll_call_round_trip_seconds_bucket{le="30"} 1)",
             R"(roll_call_round_trip_seconds_bucket{le="+Inf"} 2)",
             "roll_call_round_trip_seconds_sum 60.004",
             "roll_call_round_trip_seconds_count 2",
         }) {
        EXPECT_TRUE(has_line(text, prefix + line)) << line << "\n" << text;
    }
}

TEST(metrics, escape_what_a_label_cannot_hold) {
    const fleet_story story({{alpha, "a\"b\\c\nd\xc3\xa4", ""}});
    EXPECT_NE(metrics_of(story).find("unit=\"a\\\"b\\\\c\\nd\xc3\xa4\""), std::string::npos);
}

/// A server on a free port, and what its owner does with it.
struct served_metrics {
    sockaddr_in address = free_address();
    shortage lack{[] {}};
    metrics_server server{address, lack, [] { return std::string("metric 1\n"); }};

    static sockaddr_in free_address() {
        const descriptor_owner taken = open_socket(SOCK_STREAM);
        sockaddr_in address = resolve("127.0.0.1");
        address.sin_port = 0;
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(taken.get(), generic(address), size), 0);
        EXPECT_EQ(getsockname(taken.get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
        return address;
    }
    descriptor_owner connect_client() const {
        descriptor_owner client = open_socket(SOCK_STREAM);
        EXPECT_EQ(connect(client.get(), generic(address), sizeof address), 0);
        return client;
    }
    void advance(clock_type::duration longest = 60s) {
        poll_set events(clock_type::now() + longest);
        server.watch(events);
        events.wait();
        server.advance();
    }
};

// What the client receives before the end of the connection, or before nothing comes for now; none at the
// end.
std::optional<std::string> received(int fd) {
    char bytes[4096];
    const ssize_t count = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
    if (count > 0) {
        return std::string(bytes, static_cast<std::size_t>(count));
    }
    return count < 0 && errno == EAGAIN ? std::optional(std::string()) : std::nullopt;
}

std::string answer_to(served_metrics &served, const std::string &request) {
    const descriptor_owner client = served.connect_client();
    EXPECT_EQ(send(client.get(), request.data(), request.size(), 0),
              static_cast<ssize_t>(request.size()));
    std::string answer;
    while (const auto part = received(client.get())) {
        answer += *part;
        if (part->empty()) {
            served.advance();
        }
    }
    return answer;
}

std::string request(const std::string &line) {
    return line + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
}

std::string first_line(const std::string &text) {
    return text.substr(0, text.find("\r\n"));
}

TEST(metrics_server, answers_scrapes) {
    served_metrics served;
    const std::string answer = answer_to(served, request("GET /metrics"));
    EXPECT_EQ(first_line(answer), "HTTP/1.1 200 OK");
    EXPECT_NE(answer.find("Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n"),
              std::string::npos);
    EXPECT_TRUE(answer.ends_with("\r\n\r\nmetric 1\n"));
    EXPECT_TRUE(answer_to(served, request("GET /metrics?name=x")).ends_with("metric 1\n"));
    const std::string head = answer_to(served, request("HEAD /metrics"));
    EXPECT_EQ(first_line(head), "HTTP/1.1 200 OK");
    EXPECT_TRUE(head.ends_with("\r\n\r\n"));
}

TEST(metrics_server, answers_nothing_else) {
    served_metrics served;
    for (const char *path : {"/", "/metrics/", "/../metrics", "/metric"}) {
        EXPECT_EQ(first_line(answer_to(served, request(std::string("GET ") + path))),
                  "HTTP/1.1 404 Not Found");
    }
    for (const char *method : {"POST", "PUT", "DELETE", "OPTIONS", "PATCH"}) {
        const std::string answer = answer_to(served, request(std::string(method) + " /metrics"));
        EXPECT_EQ(first_line(answer), "HTTP/1.1 405 Method Not Allowed");
        EXPECT_NE(answer.find("Allow: GET, HEAD\r\n"), std::string::npos);
    }
    const std::string endless = "GET /" + std::string(10000, 'x') + "\r\n\r\n";
    EXPECT_TRUE(answer_to(served, endless).starts_with("HTTP/1.1 400"));
}

TEST(metrics_server, ends_the_oldest_of_too_many_connections) {
    served_metrics served;
    std::vector<descriptor_owner> silent;
    for (std::size_t i = 0; i < metrics_server::most_clients; ++i) {
        silent.push_back(served.connect_client());
        served.advance();
    }
    EXPECT_EQ(received(silent.front().get()), "");
    const descriptor_owner another = served.connect_client();
    while (received(silent.front().get())) {
        served.advance();
    }
    EXPECT_EQ(received(silent[1].get()), "");
    EXPECT_EQ(received(another.get()), "");
}

TEST(metrics_server, rests_while_there_are_no_descriptors) {
    served_metrics served;
    served.lack.note();
    const descriptor_owner client = served.connect_client();
    served.advance();
    EXPECT_GE(clock_type::now(), served.lack.rest_end()); // nothing woke it before
}

TEST(metrics_server, says_where_it_cannot_listen) {
    const served_metrics served;
    shortage lack([] {});
    try {
        const metrics_server second(served.address, lack, [] { return std::string(); });
        FAIL();
    } catch (const run_failure &failure) {
        EXPECT_EQ(failure.what(),
                  "cannot listen on " + to_text(served.address) + ": " + reason(EADDRINUSE));
    }
}

} // namespace
