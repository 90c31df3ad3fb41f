// Roll calls compared with the inventory.

#include "tools/gatewayctl/roll.h"

#include "gatewayctl_test.h"
#include "tools/gatewayctl/roll_print.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t network = 10U << 24;

std::string hardware(int number) {
    return "02:00:00:00:00:0" + std::to_string(number);
}

roll_answer from(std::uint32_t address, int hardware_address) {
    return {network + address, hardware(hardware_address), 47, false, true};
}

// One without a hardware address if that is 0.
expected_unit expecting(const std::string &name, std::uint32_t address, int hardware_address) {
    const std::string text = "10.0.0." + std::to_string(address);
    return {{name, text, "north", hardware_address == 0 ? "" : hardware(hardware_address), "note"},
            network + address};
}

// "a present 1/1" for each: its state, its address, its hardware address.
std::string states(const std::vector<expected_unit> &expected,
                   const std::vector<roll_answer> &answers) {
    std::string text;
    for (const roll_entry &entry : compare(expected, answers)) {
        text += (entry.expected ? entry.expected->unit.name : "-") + " " + to_text(entry.state);
        if (entry.answer) {
            text += " " + std::to_string(entry.answer->address - network) + "/" +
                    entry.answer->hardware_address.back();
        }
        text += "; ";
    }
    return text;
}

TEST(roll, tells_who_is_present_missing_and_unknown) {
    EXPECT_EQ(states({expecting("a", 1, 0), expecting("b", 2, 2), expecting("c", 3, 3)},
                     {from(1, 1), from(2, 2), from(9, 9)}),
              "a present 1/1; b present 2/2; c missing; - unknown 9/9; ");
}

TEST(roll, knows_a_moved_unit_by_its_hardware_address) {
    EXPECT_EQ(states({expecting("a", 1, 1), expecting("b", 2, 2)}, {from(5, 1), from(2, 2)}),
              "a moved 5/1; b present 2/2; ");
    EXPECT_EQ(states({expecting("a", 1, 1), expecting("b", 2, 2)}, {from(2, 1), from(1, 2)}),
              "a moved 2/1; b moved 1/2; ")
        << "two that have changed places";
    EXPECT_EQ(states({expecting("a", 1, 1), expecting("b", 2, 0)}, {from(2, 1)}),
              "a moved 2/1; b missing; ")
        << "to where another one was";
}

TEST(roll, tells_that_a_board_has_been_replaced) {
    EXPECT_EQ(states({expecting("a", 1, 1)}, {from(1, 7)}), "a replaced 1/7; ");
}

TEST(roll, keeps_what_is_there_twice_apart) {
    EXPECT_EQ(states({expecting("a", 1, 1)}, {from(1, 1), from(1, 2), from(3, 1)}),
              "a present 1/1; - unknown 1/2; - unknown 3/1; ");
    EXPECT_EQ(states({expecting("a", 3, 1)}, {from(1, 1), from(3, 1)}),
              "a present 3/1; - unknown 1/1; ")
        << "where it should be comes first";
}

TEST(roll, misses_a_unit_whose_name_cannot_be_resolved) {
    expected_unit unit = expecting("a", 1, 0);
    unit.address.reset();
    EXPECT_EQ(states({unit}, {from(1, 1)}), "a missing; - unknown 1/1; ");
}

TEST(roll, collects_the_records_of_each_unit) {
    roll_answers answers;
    answers.note(network + 2, {record_type::rollcall_reply, hardware(1), 47});
    answers.note(network + 2, {record_type::set_date_request, hardware(1), 0});
    answers.note(network + 1, {record_type::settings_request, hardware(1), 0});
    answers.note(network + 2, {record_type::rollcall_reply, hardware(2), 46});
    const auto all = answers.all();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].address, network + 1);
    EXPECT_EQ(requests_of(all[0]), std::vector<std::string>{"settings"});
    EXPECT_EQ(all[0].version, 0);
    EXPECT_EQ(requests_of(all[1]), std::vector<std::string>{"date"});
    EXPECT_EQ(all[1].version, 47);
    EXPECT_EQ(all[2].version, 46);
}

TEST(roll, names_what_is_there_twice) {
    const std::vector<roll_answer> answers = {from(1, 1), from(1, 2), from(3, 1), from(4, 4)};
    EXPECT_EQ(duplicates_in(answers),
              (std::vector<std::string>{
                  "the address 10.0.0.1 is in 2 answers, of 02:00:00:00:00:01, 02:00:00:00:00:02",
                  "the hardware address 02:00:00:00:00:01 is in 2 answers, of 10.0.0.1, "
                  "10.0.0.3"}));
    EXPECT_EQ(duplicates_of(answers[0], answers),
              (std::vector<std::string>{"address", "hardware_address"}));
    EXPECT_EQ(duplicates_of(answers[1], answers), std::vector<std::string>{"address"});
    EXPECT_EQ(duplicates_of(answers[2], answers), std::vector<std::string>{"hardware_address"});
    EXPECT_EQ(duplicates_of(answers[3], answers), std::vector<std::string>{});
    EXPECT_TRUE(duplicates_in({from(1, 1), from(2, 2)}).empty());
}

TEST(roll, brings_the_inventory_up_to_date) {
    expected_unit with_port = expecting("b", 2, 2);
    with_port.unit.address += ":4001";
    const auto units = updated_inventory(
        compare({expecting("a", 1, 0), with_port, expecting("c", 3, 3), expecting("d", 4, 4)},
                {from(1, 1), from(6, 2), from(3, 7), from(9, 9), from(9, 8), from(8, 9)}));
    const std::string text = to_text(units);
    EXPECT_EQ(text, "a  10.0.0.1  north  hw=02:00:00:00:00:01  # note\n"
                    "b  10.0.0.6:4001  north  hw=02:00:00:00:00:02  # note\n"
                    "c  10.0.0.3  north  hw=02:00:00:00:00:07  # note\n"
                    "d  10.0.0.4  north  hw=02:00:00:00:00:04  # note\n"
                    "10.0.0.9  10.0.0.9  hw=02:00:00:00:00:09\n"
                    "10.0.0.8  10.0.0.8\n");
    EXPECT_EQ(parse_inventory(text, "").size(), units.size());
}

TEST(roll, keeps_the_units_whose_address_has_gone_to_another_one) {
    const auto units = updated_inventory(
        compare({expecting("a", 1, 0), expecting("b", 2, 2), expecting("c", 3, 3)},
                {from(1, 2), from(2, 3)}));
    EXPECT_EQ(to_text(units), "# a  10.0.0.1  north  # note\n"
                              "b  10.0.0.1  north  hw=02:00:00:00:00:02  # note\n"
                              "c  10.0.0.2  north  hw=02:00:00:00:00:03  # note\n");
    EXPECT_TRUE(units.at(0).has_lost_address);
    EXPECT_FALSE(units.at(1).has_lost_address);
    EXPECT_FALSE(units.at(2).has_lost_address) << "what was there has moved on";
}

TEST(roll, keeps_the_comments_of_the_inventory) {
    expected_unit first = expecting("a", 1, 1), last = expecting("b", 2, 2);
    first.unit.above = "# first\n\n";
    last.unit.below = "# last\n";
    EXPECT_EQ(to_text(updated_inventory(compare({first, last}, {from(1, 1), from(9, 9)}))),
              "# first\n\n"
              "a  10.0.0.1  north  hw=02:00:00:00:00:01  # note\n"
              "b  10.0.0.2  north  hw=02:00:00:00:00:02  # note\n"
              "# last\n"
              "10.0.0.9  10.0.0.9  hw=02:00:00:00:00:09\n");
}

TEST(roll, names_unknown_units_as_no_other_is_named) {
    const std::string text = to_text(updated_inventory(compare(
        {expecting("10.0.0.9", 1, 1), expecting("10.0.0.9-2", 2, 2)}, {from(1, 1), from(9, 9)})));
    EXPECT_TRUE(text.ends_with("\n10.0.0.9-3  10.0.0.9  hw=02:00:00:00:00:09\n")) << text;
    EXPECT_EQ(parse_inventory(text, "").size(), 3U);
}

// What is printed.

std::string printed(const std::vector<expected_unit> &expected,
                    const std::vector<roll_answer> &answers, bool as_json) {
    testing::internal::CaptureStdout();
    if (expected.empty()) {
        print_answers(answers, as_json);
    } else {
        print_entries(compare(expected, answers), answers, as_json);
    }
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

const std::vector<expected_unit> some_units = {expecting("caf\xc3\xa9", 1, 1), expecting("b", 2, 2),
                                               expecting("c", 3, 3), expecting("d", 4, 4),
                                               expecting("e", 5, 0)};
const std::vector<roll_answer> some_answers = {from(1, 1), from(7, 2), from(3, 9), from(8, 8)};

TEST(roll_table, has_a_line_for_each_unit_and_a_summary) {
    EXPECT_EQ(printed(some_units, some_answers, false),
              "STATE     NAME  ADDRESS   HARDWARE ADDRESS   VERSION  ASKS FOR  NOTE\n"
              "present   café  10.0.0.1  02:00:00:00:00:01  47       settings\n"
              "moved     b     10.0.0.7  02:00:00:00:00:02  47       settings  was 10.0.0.2\n"
              "replaced  c     10.0.0.3  02:00:00:00:00:09  47       settings  was "
              "02:00:00:00:00:03\n"
              "missing   d     10.0.0.4  02:00:00:00:00:04  -        -\n"
              "missing   e     10.0.0.5  -                  -        -\n"
              "unknown   -     10.0.0.8  02:00:00:00:00:08  47       settings\n"
              "1 of 5 present, 1 replaced, 1 moved, 2 missing, 1 unknown\n");
    EXPECT_TRUE(
        printed({expecting("a", 1, 0)}, {from(1, 1)}, false).ends_with("\n1 of 1 present\n"));
}

TEST(roll_table, is_a_line_of_json_for_each_unit) {
    EXPECT_EQ(printed({expecting("a", 1, 1), expecting("b", 2, 0)}, {from(1, 1), from(1, 2)}, true),
              "{\"state\": \"present\", \"name\": \"a\", \"group\": \"north\", "
              "\"expected_address\": \"10.0.0.1\", "
              "\"expected_hardware_address\": \"02:00:00:00:00:01\", \"address\": \"10.0.0.1\", "
              "\"hardware_address\": \"02:00:00:00:00:01\", \"version\": 47, "
              "\"asks_for\": [\"settings\"], \"duplicates\": [\"address\"]}\n"
              "{\"state\": \"missing\", \"name\": \"b\", \"group\": \"north\", "
              "\"expected_address\": \"10.0.0.2\", \"expected_hardware_address\": \"\"}\n"
              "{\"state\": \"unknown\", \"address\": \"10.0.0.1\", "
              "\"hardware_address\": \"02:00:00:00:00:02\", \"version\": 47, "
              "\"asks_for\": [\"settings\"], \"duplicates\": [\"address\"]}\n");
}

TEST(roll_table, has_no_version_before_a_unit_has_told_it) {
    roll_answer asking = from(1, 1);
    asking.version = 0;
    EXPECT_NE(printed({expecting("a", 1, 1)}, {asking}, false)
                  .find("\npresent  a     10.0.0.1  02:00:00:00:00:01  -        settings\n"),
              std::string::npos);
    EXPECT_NE(printed({}, {asking}, false)
                  .find("\n10.0.0.1         02:00:00:00:00:01  -        settings\n"),
              std::string::npos);
    EXPECT_NE(printed({}, {asking}, true).find("\"version\": null, "), std::string::npos);
}

TEST(roll_table, lists_the_answers_where_nobody_is_expected) {
    roll_answer silent = from(1, 1);
    silent.wants_settings = false;
    EXPECT_EQ(printed({}, {silent, from(2, 2)}, false),
              "ADDRESS          HARDWARE ADDRESS   VERSION  ASKS FOR\n"
              "10.0.0.1         02:00:00:00:00:01  47       -\n"
              "10.0.0.2         02:00:00:00:00:02  47       settings\n");
    EXPECT_EQ(printed({}, {from(2, 2)}, true),
              "{\"address\": \"10.0.0.2\", \"hardware_address\": \"02:00:00:00:00:02\", "
              "\"version\": 47, \"asks_for\": [\"settings\"]}\n");
}

} // namespace
