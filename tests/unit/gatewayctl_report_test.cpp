// What is said about a delivery.

#include "tools/gatewayctl/delivery_report.h"

#include "gatewayctl_test.h"

#include <gtest/gtest.h>
#include <string>

namespace {

const std::vector<inventory_unit> units = {
    {"a", "10.0.0.1", "north"}, {"café \"\x1b", "h", {}}, {"c", "10.0.0.3", {}}};

delivery_result taken(std::size_t unit, int attempts = 1) {
    return {units[unit], units[unit].address + ":4000", "", attempts, std::chrono::milliseconds(7)};
}

delivery_result failed(std::size_t unit) {
    return {units[unit], units[unit].address + ":4000", "no \"route\"\x1b", 3,
            std::chrono::milliseconds(7)};
}

struct output {
    std::string out, err;
};

output said(report_form form, channel via, bool is_on_terminal = false) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    delivery_report report(form, units, via, 12, is_on_terminal);
    report.add(taken(0));
    report.add(failed(1));
    report.add(taken(2, 2));
    report.finish();
    const std::string out = testing::internal::GetCapturedStdout();
    return {out, testing::internal::GetCapturedStderr()};
}

TEST(delivery_report, has_a_line_for_each_unit_and_a_summary) {
    const output tcp = said(report_form::table, channel::tcp);
    EXPECT_EQ(tcp.out,
              "a           10.0.0.1:4000          taken\n"
              "café \"\\x1b  h:4000                 FAILED: no \"route\"\\x1b (attempt 3)\n"
              "c           10.0.0.3:4000          taken (attempt 2)\n"
              "12 bytes taken by 2 of 3, 1 failed; TCP does not prove that they are "
              "units\n");
    EXPECT_EQ(tcp.err, "");
    const output udp = said(report_form::table, channel::udp);
    EXPECT_EQ(udp.out.substr(0, udp.out.find('\n')), "a           10.0.0.1:4000          sent");
    EXPECT_TRUE(
        udp.out.ends_with("12 bytes sent to 2 of 3, 1 failed; UDP does not confirm delivery\n"));
}

TEST(delivery_report, has_a_line_of_json_for_each_unit) {
    EXPECT_EQ(said(report_form::json, channel::tcp).out,
              "{\"name\": \"a\", \"address\": \"10.0.0.1:4000\", \"result\": \"taken\", "
              "\"attempts\": 1, \"milliseconds\": 7}\n"
              "{\"name\": \"café \\\"\\u001b\", \"address\": \"h:4000\", \"result\": \"failed\", "
              "\"attempts\": 3, \"milliseconds\": 7, \"error\": \"no \\\"route\\\"\\u001b\"}\n"
              "{\"name\": \"c\", \"address\": \"10.0.0.3:4000\", \"result\": \"taken\", "
              "\"attempts\": 2, \"milliseconds\": 7}\n");
    EXPECT_NE(said(report_form::json, channel::udp).out.find("\"result\": \"sent\""),
              std::string::npos);
}

TEST(delivery_report, says_of_one_unit_what_is_known_and_what_is_not) {
    const output tcp = said(report_form::one_unit, channel::tcp);
    EXPECT_TRUE(tcp.out.starts_with(
        "12 bytes taken by 10.0.0.1:4000; TCP does not prove that it is a unit\n"));
    EXPECT_EQ(tcp.err, "gatewayctl: no \"route\"\\x1b\n");
    EXPECT_TRUE(
        said(report_form::one_unit, channel::udp)
            .out.starts_with("12 bytes sent to 10.0.0.1:4000; UDP does not confirm delivery\n"));
}

TEST(delivery_report, shows_on_a_terminal_how_far_it_has_come) {
    EXPECT_EQ(said(report_form::table, channel::tcp, true).err,
              "0 of 3\r\x1b[K1 of 3\r\x1b[K2 of 3, 1 failed\r\x1b[K\r\x1b[K");
    EXPECT_EQ(said(report_form::one_unit, channel::tcp, true).err,
              said(report_form::one_unit, channel::tcp).err);
}

TEST(delivery_report, reserves_nothing_where_nothing_was_taken) {
    testing::internal::CaptureStdout();
    delivery_report report(report_form::table, units, channel::tcp, 1, false);
    report.add(failed(0));
    report.finish();
    EXPECT_TRUE(
        testing::internal::GetCapturedStdout().ends_with("\n1 byte taken by 0 of 3, 1 failed\n"));
}

TEST(delivery_report, keeps_the_failed_units) {
    testing::internal::CaptureStdout();
    delivery_report report(report_form::table, units, channel::tcp, 1, false);
    report.add(taken(0));
    report.add(failed(2));
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(report.failed().size(), 1U);
    EXPECT_EQ(report.failed()[0].name, "c");
}

} // namespace
