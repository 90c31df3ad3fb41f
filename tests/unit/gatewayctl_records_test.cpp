#include "tools/gatewayctl/describe.h"
#include "tools/gatewayctl/records.h"

#include "gatewayctl_test.h"
#include "wire.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

const bytes reply{2, 2, 0, 0x0a, 0x57, 0x21, 0x32, 12, wire::version};
const bytes date_request{39, 0xa1, 2, 3, 4, 5, 0xf6};
const bytes settings_request{47, 1, 0xb2, 3, 4, 0xe5, 6};

using lines = std::vector<std::string>;

TEST(records, are_told_by_code_and_size) {
    ASSERT_TRUE(parse_record(reply));
    EXPECT_EQ(parse_record(reply)->type, record_type::rollcall_reply);
    ASSERT_TRUE(parse_record(date_request));
    EXPECT_EQ(parse_record(date_request)->type, record_type::set_date_request);
    ASSERT_TRUE(parse_record(settings_request));
    EXPECT_EQ(parse_record(settings_request)->type, record_type::settings_request);
}

TEST(records, give_the_hardware_address) {
    EXPECT_EQ(parse_record(reply)->hardware_address, "02:00:0a:57:21:32");
    EXPECT_EQ(parse_record(date_request)->hardware_address, "a1:02:03:04:05:f6");
    EXPECT_EQ(parse_record(settings_request)->hardware_address, "01:b2:03:04:e5:06");
}

TEST(records, only_a_reply_gives_a_version) {
    EXPECT_EQ(parse_record(reply)->version, wire::version);
    EXPECT_EQ(parse_record(bytes({2, 1, 2, 3, 4, 5, 6, 12, 255}))->version, 255);
    EXPECT_EQ(parse_record(date_request)->version, 0);
    EXPECT_EQ(parse_record(settings_request)->version, 0);
}

TEST(records, of_another_size_or_code_are_none) {
    for (const int code : {2, 39, 47}) {
        for (std::size_t size = 0; size < 12; ++size) {
            bytes record(size, 1);
            if (size > 0) {
                record[0] = static_cast<std::uint8_t>(code);
            }
            const bool is_one = size == (code == 2 ? 9 : 7);
            EXPECT_EQ(parse_record(record).has_value(), is_one) << code << " " << size;
            EXPECT_EQ(describe_record(record).title.starts_with("unknown record"), !is_one);
        }
    }
    for (const std::uint8_t code : bytes({0, 1, 3, 38, 40, 46, 48, 255})) {
        for (const std::size_t size : {7U, 9U}) {
            EXPECT_FALSE(parse_record(bytes(size, code)));
            EXPECT_FALSE(describe_record(bytes(size, code)).faults.empty());
        }
    }
}

// As words.

TEST(records, reply_is_described_byte_by_byte) {
    EXPECT_EQ(to_text(describe_record(reply), reply),
              "roll-call reply, a record\n"
              "      0  02                          code                2, roll-call reply\n"
              "      1  02 00 0a 57 21 32           hardware address    02:00:0a:57:21:32\n"
              "      7  0c                          fixed byte          12\n"
              "      8  2f                          version             47\n");
    const bytes other{2, 1, 2, 3, 4, 5, 6, 13, 48};
    EXPECT_EQ(describe_record(other).faults, lines{"byte 7 is always 12"});
}

TEST(records, requests_are_described) {
    EXPECT_EQ(to_text(describe_record(date_request), date_request),
              "set-date request, a record\n"
              "      0  27                          code                39, set-date request\n"
              "      1  a1 02 03 04 05 f6           hardware address    a1:02:03:04:05:f6\n");
    EXPECT_EQ(to_text(describe_record(settings_request), settings_request),
              "settings request, a record\n"
              "      0  2f                          code                47, settings request\n"
              "      1  01 b2 03 04 e5 06           hardware address    01:b2:03:04:e5:06\n");
}

TEST(records, other_bytes_are_described_as_unknown) {
    const bytes one{9};
    EXPECT_EQ(to_text(describe_record(one), one),
              "unknown record, 1 byte\n"
              "What is wrong with it:\n"
              "  - a record is a code (2, 39 or 47), a hardware address of 6 bytes, and for code 2 "
              "two more bytes\n");
}

} // namespace
