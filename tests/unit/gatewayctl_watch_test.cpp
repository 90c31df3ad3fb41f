// What the readers of gatewayctl watch see.

#include "tools/gatewayctl/watch_table.h"
#include "tools/gatewayctl/watch_words.h"

#include "fleet_story.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t alpha = fleet_story::alpha;
constexpr std::uint32_t beta = fleet_story::beta;
const std::vector<unit_identity> named{{alpha, "alpha", "north"}, {beta, "b\"\xc3\xa4", ""}};

/// Local time is UTC during its lifetime.
struct in_utc {
    in_utc() {
        setenv("TZ", "UTC", 1);
    }
    in_utc(const in_utc &) = delete;
    in_utc &operator=(const in_utc &) = delete;
    ~in_utc() {
        unsetenv("TZ");
    }
};

std::vector<std::string> texts(const fleet_story &story) {
    std::vector<std::string> result;
    for (const auto &change : story.changes) {
        result.push_back(name_of(change.unit) + " " +
                         change_text(change.as_change(), story.units.has_names()));
    }
    return result;
}

TEST(watch_words, tell_every_change) {
    const in_utc zone;
    fleet_story story({named[0], {0x7f000001, "gamma", ""}});
    story.call();
    story.answer(alpha);
    story.answer(alpha, record_type::set_date_request);
    story.answer(beta);
    for (int i = 0; i < 2; ++i) {
        story.pass(60s);
        story.call();
    }
    story.pass(12s);
    story.answer(alpha, record_type::rollcall_reply, "02:00:00:00:00:01", 48);
    story.pass(48s);
    story.call();
    const std::vector<std::string> expected{
        "alpha is there, version 47 (02:00:0a:57:21:32)",
        "10.87.51.51 is there, version 47 (02:00:0a:57:21:32), but not expected",
        "alpha asks for: date",
        "gamma is missing; it has not answered since the start",
        "alpha is missing; its last answer came at 04:00:00",
        "10.87.51.51 is missing; its last answer came at 04:00:00",
        "alpha is back after 12 s, version 48 (02:00:00:00:00:01)",
        "alpha is another board now (02:00:00:00:00:01)",
        "alpha has another version now, version 48",
        "alpha no longer asks for anything",
    };
    std::vector<std::string> told = texts(story);
    std::ranges::sort(told);
    std::vector<std::string> sorted = expected;
    std::ranges::sort(sorted);
    EXPECT_EQ(told, sorted);
}

TEST(watch_words, leave_out_a_version_that_is_not_known) {
    fleet_story story;
    story.call();
    story.answer(alpha, record_type::settings_request, "02:00:0a:57:21:32", 0);
    EXPECT_EQ(texts(story), std::vector<std::string>{"10.87.51.50 is there (02:00:0a:57:21:32)"});
}

TEST(watch_words, have_a_form_for_machines) {
    fleet_story story({named[1]});
    story.call();
    story.pass(1500ms);
    story.answer(beta);
    EXPECT_EQ(change_json(story.changes[0].as_change()),
              R"({"time": "2026-11-22T04:00:01.500Z", "change": "appeared", "unit": "b\"ä", )"
              R"("address": "10.87.51.51", "group": null, "state": "present", )"
              R"("since": "2026-11-22T04:00:01.500Z", "last_answer": "2026-11-22T04:00:01.500Z", )"
              R"("hardware_address": "02:00:0a:57:21:32", "version": 47, "asks_for": []})");
    story.answer(beta, record_type::set_date_request);
    story.answer(beta, record_type::settings_request);
    story.pass(50ms);
    story.call();
    EXPECT_NE(change_json(story.changes[1].as_change())
                  .find(R"("time": "2026-11-22T04:00:01.550Z", "change": "other requests")"),
              std::string::npos);
    EXPECT_NE(change_json(story.changes[1].as_change()).find(R"("asks_for": ["date", "settings"])"),
              std::string::npos);
}

TEST(watch_words, say_null_for_what_is_not_known) {
    fleet_story story({named[0]});
    story.call();
    story.call();
    EXPECT_EQ(change_json(story.changes[0].as_change()),
              R"({"time": "2026-11-22T04:00:00.000Z", "change": "lost", "unit": "alpha", )"
              R"("address": "10.87.51.50", "group": "north", "state": "missing", )"
              R"("since": "2026-11-22T04:00:00.000Z", "last_answer": null, )"
              R"("hardware_address": null, "version": null, "asks_for": []})");
}

TEST(watch_words, name_spans_of_time) {
    EXPECT_EQ(span_text(0s), "0 s");
    EXPECT_EQ(span_text(59s), "59 s");
    EXPECT_EQ(span_text(60s), "1 min");
    EXPECT_EQ(span_text(119s), "1 min");
    EXPECT_EQ(span_text(3600s), "1 h");
    EXPECT_EQ(span_text(5h + 10min + 59s), "5 h 10 min");
    EXPECT_EQ(span_text(24h), "1 d");
    EXPECT_EQ(span_text(76h), "3 d 4 h");
    EXPECT_EQ(seconds_between(wall_time(5s), wall_time(3s)), 0s);
    EXPECT_EQ(seconds_between(wall_time(3s), wall_time(5900ms)), 2s);
}

TEST(watch_table, shows_missing_units_first) {
    const in_utc zone;
    fleet_story story({named[1], {0x7f000001, "gamma", ""}, named[0]});
    story.call();
    story.answer(alpha);
    story.answer(beta);
    story.answer(beta, record_type::set_date_request);
    story.answer(0x0a000001);
    story.pass(60s);
    story.call();
    story.answer(0x0a000001);
    story.pass(5s);
    table_frame frame;
    frame.columns = 200;
    frame.now = story.now.wall;
    frame.until_call = 55s;
    EXPECT_EQ(table_text(story.units, frame),
              "2 of 3 units present, 1 missing, 1 unknown; 04:01:05, next roll call in 55 s\n"
              "UNIT      GROUP  ADDRESS      STATE    SINCE           FOR    VERSION  HARDWARE "
              "ADDRESS   ASKS FOR\n"
              "gamma     -      127.0.0.1    missing  11-22 04:01:00  5 s    -        -        "
              "          -\n"
              "10.0.0.1  -      10.0.0.1     unknown  11-22 04:00:00  1 min  47       "
              "02:00:0a:57:21:32  -\n"
              "b\"\xc3\xa4       -      10.87.51.51  present  11-22 04:00:00  1 min  47       "
              "02:00:0a:57:21:32  date\n"
              "alpha     north  10.87.51.50  present  11-22 04:00:00  1 min  47       "
              "02:00:0a:57:21:32  -\n");
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines(1);
    for (const char c : text) {
        if (c == '\n') {
            lines.emplace_back();
        } else {
            lines.back() += c;
        }
    }
    lines.pop_back();
    return lines;
}

TEST(watch_table, fits_the_terminal) {
    fleet_story story;
    story.call();
    for (std::uint32_t i = 0; i < 10; ++i) {
        story.answer(alpha + i);
    }
    table_frame frame;
    frame.columns = 20;
    frame.rows = 12;
    EXPECT_EQ(lines_of(table_text(story.units, frame)).size(), 12U);
    EXPECT_EQ(lines_of(table_text(story.units, frame)).back(), "10.87.51.59  -      ");
    frame.rows = 11;
    EXPECT_EQ(lines_of(table_text(story.units, frame)).size(), 11U);
    EXPECT_EQ(lines_of(table_text(story.units, frame)).back(), "and 2 more");
    frame.notice = "the network is down";
    EXPECT_EQ(lines_of(table_text(story.units, frame)).size(), 11U);
    EXPECT_EQ(lines_of(table_text(story.units, frame))[1], "the network is down");
    EXPECT_EQ(lines_of(table_text(story.units, frame)).back(), "and 3 more");
    for (frame.rows = 0; frame.rows < 4; ++frame.rows) {
        EXPECT_LE(lines_of(table_text(story.units, frame)).size(), 4U);
    }
}

} // namespace
