#include "hdtv/message.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>

namespace {

TEST(message, is_zero_before_anything_is_received) {
    const gateway_message message;
    EXPECT_EQ(message.size(), 0);
    for (int i = 0; i < 4096; ++i) {
        ASSERT_EQ(message.byte(i), 0);
    }
}

TEST(message, bytes_are_unsigned_and_numbers_big_endian) {
    gateway_message message;
    std::memcpy(message.receive_area(), "\xff\x01\x80", 3);
    EXPECT_EQ(message.byte(0), 255);
    EXPECT_EQ(message.number(0), 0xff01);
    EXPECT_EQ(message.number(1), 0x0180);
    EXPECT_EQ(message.number(2), 0x8000);
}

TEST(message, everything_outside_reads_as_zero) {
    gateway_message message;
    std::memset(message.receive_area(), 0xff, 4096);
    for (const int position : {-1, -2, INT_MIN, 4096, 4097, INT_MAX - 1}) {
        EXPECT_EQ(message.byte(position), 0) << position;
        EXPECT_STREQ(message.text(position), "") << position;
    }
    EXPECT_EQ(message.number(4095), 0xff00);
    EXPECT_EQ(message.number(-1), 0x00ff);
}

TEST(message, text_of_a_full_buffer_ends_at_its_end) {
    gateway_message message;
    std::memset(message.receive_area(), 'x', 4096);
    EXPECT_EQ(std::strlen(message.text(0)), 4096U);
    EXPECT_EQ(std::strlen(message.text(1)), 4095U);
    EXPECT_EQ(std::strlen(message.text(4095)), 1U);
}

TEST(message, size_stays_within_the_buffer) {
    gateway_message message;
    for (const auto &[received, size] :
         {std::pair{-1, 0}, {0, 0}, {4095, 4095}, {4096, 4096}, {4097, 4096}, {INT_MAX, 4096}}) {
        message.set_size(received);
        EXPECT_EQ(message.size(), size);
    }
}

} // namespace
