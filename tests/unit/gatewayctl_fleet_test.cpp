// Who is there and since when.

#include "fleet_story.h"

#include <gtest/gtest.h>
#include <numeric>

namespace {

using namespace std::chrono_literals;
using kinds = std::vector<change_kind>;

constexpr std::uint32_t alpha = fleet_story::alpha;
constexpr std::uint32_t beta = fleet_story::beta;
const std::vector<unit_identity> named{{beta, "beta", "south"}, {alpha, "alpha", ""}};

const fleet_unit &unit_of(const fleet_story &story, std::uint32_t address) {
    for (const fleet_unit *unit : story.units.units()) {
        if (unit->identity.address == address) {
            return *unit;
        }
    }
    ADD_FAILURE();
    return *story.units.units().front();
}

std::string names(const fleet_story &story) {
    std::string text;
    for (const fleet_unit *unit : story.units.units()) {
        text += name_of(*unit) + " ";
    }
    return text;
}

TEST(fleet, awaits_named_units_until_the_next_call) {
    fleet_story story(named);
    story.call();
    story.pass(59s);
    EXPECT_EQ(unit_of(story, alpha).state, presence::awaited);
    EXPECT_EQ(story.take_kinds(), kinds{});
    story.pass(1s);
    story.call();
    EXPECT_EQ(unit_of(story, alpha).state, presence::missing);
    EXPECT_EQ(unit_of(story, alpha).since, story.now.wall);
    EXPECT_EQ(unit_of(story, alpha).last_answer, std::nullopt);
    EXPECT_EQ(story.take_kinds(), (kinds{change_kind::lost, change_kind::lost}));
    story.pass(60s);
    story.call();
    EXPECT_EQ(story.take_kinds(), kinds{}); // once is enough
}

TEST(fleet, judges_nobody_who_could_not_be_called) {
    fleet_story story(named);
    story.call();
    story.answer(alpha);
    story.answer(alpha, record_type::set_date_request);
    story.pass(60s);
    story.units.judge(story.now);
    story.units.note_call(story.now, {alpha});
    story.take_kinds();
    story.pass(60s);
    story.call();
    EXPECT_EQ(story.take_kinds(), kinds{}) << "beta is missing already";
    EXPECT_EQ(unit_of(story, alpha).state, presence::present);
    EXPECT_EQ(requests_text(unit_of(story, alpha)), "date") << "as far as is known";
    story.pass(60s);
    story.call();
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::lost});
}

TEST(fleet, times_no_answer_of_who_could_not_be_called) {
    fleet_story story(named);
    story.units.note_call(story.now, {alpha});
    story.answer(alpha);
    story.answer(beta);
    const auto &counts = story.units.times().counts;
    EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), 0U), 1U);
}

TEST(fleet, tells_who_appears_and_who_does_not_answer_any_more) {
    fleet_story story(named);
    story.call();
    EXPECT_TRUE(story.answer(alpha));
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::appeared});
    const wall_time begin = story.now.wall;
    for (int i = 0; i < 3; ++i) {
        story.pass(60s);
        story.call();
        story.answer(alpha);
    }
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::lost}); // the other one
    EXPECT_EQ(unit_of(story, alpha).since, begin);
    EXPECT_EQ(unit_of(story, alpha).last_answer, story.now.wall);
    story.pass(60s);
    story.call();
    EXPECT_EQ(unit_of(story, alpha).state, presence::present);
    story.pass(60s);
    story.call();
    EXPECT_EQ(unit_of(story, alpha).state, presence::missing);
    const wall_time loss = story.now.wall;
    story.pass(10s);
    story.answer(alpha);
    EXPECT_EQ(unit_of(story, alpha).state, presence::present);
    EXPECT_EQ(story.changes.back().before, loss);
    EXPECT_EQ(story.take_kinds(), (kinds{change_kind::lost, change_kind::returned}));
}

TEST(fleet, does_not_blame_units_for_a_call_that_was_not_sent) {
    fleet_story story(named);
    story.units.judge(story.now);
    EXPECT_EQ(story.take_kinds(), kinds{});
    story.call();
    story.answer(alpha);
    story.pass(60s);
    story.units.judge(story.now); // and again no call
    story.take_kinds();
    story.pass(60s);
    story.units.judge(story.now);
    EXPECT_EQ(unit_of(story, alpha).state, presence::present);
    EXPECT_EQ(story.take_kinds(), kinds{});
}

TEST(fleet, believes_any_record) {
    fleet_story story(named);
    story.call();
    story.answer(alpha, record_type::set_date_request, "02:00:0a:57:21:32", 0);
    EXPECT_EQ(unit_of(story, alpha).state, presence::present);
    EXPECT_EQ(unit_of(story, alpha).said.hardware_address, "02:00:0a:57:21:32");
    EXPECT_EQ(unit_of(story, alpha).said.version, 0);
    story.answer(alpha);
    EXPECT_EQ(unit_of(story, alpha).said.version, 47);
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::appeared});
}

TEST(fleet, keeps_requests_until_a_call_is_answered_without_them) {
    fleet_story story(named);
    story.call();
    story.answer(alpha);
    story.answer(alpha, record_type::set_date_request);
    EXPECT_EQ(requests_text(unit_of(story, alpha)), "date");
    story.answer(alpha, record_type::settings_request);
    EXPECT_EQ(requests_text(unit_of(story, alpha)), "date, settings");
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::appeared});
    story.pass(60s);
    story.call();
    EXPECT_EQ(story.take_kinds(), (kinds{change_kind::other_requests, change_kind::lost}));
    story.answer(alpha);
    EXPECT_EQ(requests_text(unit_of(story, alpha)), "date, settings"); // more may come
    story.answer(alpha, record_type::settings_request);
    story.pass(60s);
    story.call();
    EXPECT_EQ(requests_text(unit_of(story, alpha)), "settings");
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::other_requests});
    story.pass(60s);
    story.call();
    EXPECT_EQ(requests_text(unit_of(story, alpha)), ""); // nobody knows what a missing unit wants
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::lost});
}

TEST(fleet, tells_of_other_boards_and_versions) {
    fleet_story story(named);
    story.call();
    story.answer(alpha);
    story.answer(alpha, record_type::settings_request, "02:00:0a:57:21:32", 0);
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::appeared});
    story.answer(alpha, record_type::rollcall_reply, "02:00:0a:57:21:32", 48);
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::other_version});
    story.answer(alpha, record_type::rollcall_reply, "02:00:0a:57:21:33", 48);
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::other_board});
    EXPECT_EQ(unit_of(story, alpha).said.hardware_address, "02:00:0a:57:21:33");
    EXPECT_EQ(unit_of(story, alpha).said.version, 48);
}

TEST(fleet, forgets_unknown_units_that_leave) {
    fleet_story story({named[1]});
    story.call();
    story.answer(alpha);
    story.answer(beta);
    EXPECT_FALSE(unit_of(story, beta).is_expected);
    EXPECT_EQ(names(story), "alpha 10.87.51.51 ");
    EXPECT_EQ(tally_of(story.units).unknown, 1U);
    EXPECT_EQ(tally_of(story.units).expected, 1U);
    EXPECT_EQ(tally_of(story.units).present, 1U);
    story.pass(60s);
    story.call();
    story.answer(alpha);
    story.pass(60s);
    story.take_kinds();
    story.call();
    EXPECT_EQ(story.take_kinds(), kinds{change_kind::lost});
    EXPECT_EQ(names(story), "alpha ");
}

TEST(fleet, expects_whoever_has_answered_where_none_is_named) {
    fleet_story story;
    story.call();
    story.answer(beta);
    story.answer(alpha);
    EXPECT_EQ(names(story), "10.87.51.50 10.87.51.51 ");
    story.pass(60s);
    story.call();
    story.answer(alpha);
    story.pass(60s);
    story.call();
    const fleet_tally tally = tally_of(story.units);
    EXPECT_EQ(tally.expected, 2U);
    EXPECT_EQ(tally.present, 1U);
    EXPECT_EQ(tally.missing, 1U);
    EXPECT_EQ(tally.awaited, 0U);
    EXPECT_EQ(tally.unknown, 0U);
}

TEST(fleet, keeps_the_order_in_which_units_are_named) {
    const fleet_story story(named);
    EXPECT_EQ(names(story), "beta alpha ");
    EXPECT_EQ(tally_of(story.units).awaited, 2U);
}

TEST(fleet, measures_each_units_first_answer_to_a_call) {
    fleet_story story(named);
    story.answer(alpha); // nobody has asked
    story.call();
    story.pass(3ms);
    story.answer(alpha);
    story.pass(40s);
    story.answer(alpha, record_type::set_date_request);
    story.answer(beta);
    const answer_times &times = story.units.times();
    EXPECT_EQ(std::accumulate(times.counts.begin(), times.counts.end(), std::uint64_t{0}), 2U);
    EXPECT_EQ(times.counts[2], 1U);
    EXPECT_EQ(times.counts.back(), 1U);
    EXPECT_DOUBLE_EQ(times.sum, 40.006);
}

TEST(answer_times, count_up_to_and_with_each_bound) {
    answer_times times;
    times.add(answer_times::bounds[0]);
    times.add(answer_times::bounds[1]);
    EXPECT_EQ(times.counts[0], 1U);
    EXPECT_EQ(times.counts[1], 1U);
}

TEST(fleet, keeps_only_so_many_units) {
    fleet_story story;
    story.call();
    for (std::uint32_t i = 0; i < fleet::most_units; ++i) {
        ASSERT_TRUE(story.answer(alpha + i));
    }
    EXPECT_FALSE(story.answer(alpha + fleet::most_units));
    EXPECT_TRUE(story.answer(alpha));
    EXPECT_EQ(story.units.units().size(), fleet::most_units);
}

} // namespace
