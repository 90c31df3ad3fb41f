#include "bstrlib_test.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

TEST_F(bstrlib, copy_of_the_empty_text_has_capacity_8_and_a_single_zero_byte) {
    const bstr_owner b(bfromcstr(""));
    expect_valid(b);
    EXPECT_EQ(b->slen, 0);
    EXPECT_EQ(b->mlen, 8);
    EXPECT_EQ(b->data[0], 0);
}

TEST_F(bstrlib, copy_of_a_text_has_the_growth_rule_of_its_length_and_one) {
    for (const auto &[length, capacity] : std::vector<std::pair<int, int>>{{1, 8},
                                                                           {6, 8},
                                                                           {7, 16},
                                                                           {8, 16},
                                                                           {14, 16},
                                                                           {15, 32},
                                                                           {16, 32},
                                                                           {31, 64},
                                                                           {100, 128}}) {
        const std::string text(static_cast<std::size_t>(length), 'x');
        const bstr_owner b(bfromcstr(text.c_str()));
        expect_valid(b);
        EXPECT_EQ(text_of(b), text);
        EXPECT_EQ(b->mlen, capacity) << length;
        const bstr_owner copy(bstrcpy(b.get()));
        expect_valid(copy);
        EXPECT_EQ(text_of(copy), text);
        EXPECT_EQ(copy->mlen, capacity) << length;
    }
}

TEST_F(bstrlib, copy_of_null_is_null) {
    EXPECT_EQ(bfromcstr(nullptr), nullptr);
    EXPECT_EQ(blk2bstr(nullptr, 0), nullptr);
    EXPECT_EQ(bstrcpy(nullptr), nullptr);
}

TEST_F(bstrlib, block_keeps_its_zero_bytes) {
    const bstr_owner b(blk2bstr("a\0b", 3));
    expect_valid(b);
    EXPECT_EQ(text_of(b), std::string("a\0b", 3));
    EXPECT_EQ(blk2bstr("abc", -1), nullptr);
    EXPECT_EQ(blk2bstr("abc", INT_MIN), nullptr);
    EXPECT_EQ(blk2bstr("abc", INT_MAX), nullptr);
    const bstr_owner empty(blk2bstr("abc", 0));
    expect_valid(empty);
    EXPECT_EQ(empty->slen, 0);
}

TEST_F(bstrlib, copy_of_a_constant_record_is_a_writable_one) {
    const tagbstring constant = "&quot;"_bstr;
    EXPECT_LT(constant.mlen, 0);
    EXPECT_EQ(constant.slen, 6);
    const bstr_owner copy(bstrcpy(&constant));
    expect_valid(copy);
    EXPECT_EQ(text_of(copy), "&quot;");
    EXPECT_EQ(bconchar(copy.get(), '!'), BSTR_OK);
    EXPECT_EQ(text_of(copy), "&quot;!");
}

TEST_F(bstrlib, copy_of_a_dead_record_is_null) {
    refused_records records;
    EXPECT_EQ(bstrcpy(&records.dead), nullptr);
    EXPECT_EQ(bstrcpy(&records.without_data), nullptr);
}

TEST_F(bstrlib, new_record_without_memory_is_null) {
    const auto without_memory = [](auto make_record) {
        for (int allowed = 0; allowed < 2; ++allowed) {
            allowed_mallocs = allowed;
            failing_mallocs = 100;
            const bstring b = make_record();
            have_memory();
            EXPECT_EQ(b, nullptr);
        }
    };
    const tagbstring constant = "abc"_bstr;
    without_memory([] { return bfromcstr("abc"); });
    without_memory([] { return blk2bstr("abc", 3); });
    without_memory([&] { return bstrcpy(&constant); });
    without_memory([] { return bformat("%s", "abc"); });
}

TEST_F(bstrlib, copy_of_a_record_that_leaves_no_room_for_the_terminator_is_null) {
    unsigned char bytes[1] = {};
    const tagbstring longest = {-1, INT_MAX, bytes};
    EXPECT_EQ(bstrcpy(&longest), nullptr);
}

TEST_F(bstrlib, copy_falls_back_to_exactly_what_it_needs) {
    const bstr_owner b(bfromcstr("abc"));
    allowed_mallocs = 1; // the record; its buffer of 8 fails
    failing_mallocs = 1;
    const bstr_owner copy(bstrcpy(b.get()));
    expect_valid(copy);
    EXPECT_EQ(copy->mlen, 4);
    EXPECT_EQ(text_of(copy), "abc");
}

TEST_F(bstrlib, growing_a_record_of_capacity_8_to_8_bytes_gives_16_and_to_100_gives_128) {
    const bstr_owner b(bfromcstr(""));
    EXPECT_EQ(bgrow(b.get(), 7), BSTR_OK);
    EXPECT_EQ(b->mlen, 8);
    EXPECT_EQ(bgrow(b.get(), 8), BSTR_OK);
    EXPECT_EQ(b->mlen, 16);
    EXPECT_EQ(bgrow(b.get(), 100), BSTR_OK);
    EXPECT_EQ(b->mlen, 128);
    EXPECT_EQ(bgrow(b.get(), 1), BSTR_OK);
    EXPECT_EQ(b->mlen, 128);
    expect_valid(b);
}

TEST_F(bstrlib, growing_keeps_the_text_and_ends_it_with_zero) {
    const bstr_owner b(bfromcstr("station"));
    EXPECT_EQ(bgrow(b.get(), 1000), BSTR_OK);
    EXPECT_EQ(b->mlen, 1024);
    expect_valid(b);
    EXPECT_EQ(text_of(b), "station");
}

TEST_F(bstrlib, growing_refuses_invalid_records_and_sizes) {
    refused_records records;
    for (bstring b : records.all()) {
        EXPECT_EQ(bgrow(b, 100), BSTR_ERR);
    }
    const bstr_owner b(bfromcstr("abc"));
    EXPECT_EQ(bgrow(b.get(), 0), BSTR_ERR);
    EXPECT_EQ(bgrow(b.get(), -1), BSTR_ERR);
    EXPECT_EQ(bgrow(b.get(), INT_MIN), BSTR_ERR);
    EXPECT_EQ(b->mlen, 8);
}

TEST_F(bstrlib, growing_a_mostly_unused_buffer_takes_a_fresh_one) {
    const bstr_owner b(bfromcstr("1234567")); // 7 of 16: 7 * 16 >= 8 * 7
    EXPECT_EQ(bgrow(b.get(), 16), BSTR_OK);
    EXPECT_TRUE(realloc_sizes.empty());
    EXPECT_EQ(b->mlen, 32);
}

TEST_F(bstrlib, growing_a_buffer_filled_to_just_seven_eighths_takes_a_fresh_one) {
    const bstr_owner b(bfromcstr("12345678901234")); // 14 of 16: 7 * 16 == 8 * 14
    ASSERT_EQ(b->mlen, 16);
    EXPECT_EQ(bgrow(b.get(), 16), BSTR_OK);
    EXPECT_TRUE(realloc_sizes.empty());
    EXPECT_EQ(text_of(b), "12345678901234");
}

TEST_F(bstrlib, growing_a_full_buffer_resizes_it_in_place) {
    const bstr_owner b(bfromcstr("12345678901234"));
    ASSERT_EQ(bconchar(b.get(), '5'), BSTR_OK); // 15 of 32
    b->mlen = 16;                               // 15 of 16: 7 * 16 < 8 * 15
    realloc_sizes.clear();
    EXPECT_EQ(bgrow(b.get(), 16), BSTR_OK);
    EXPECT_EQ(realloc_sizes, std::vector<std::size_t>{32});
    EXPECT_EQ(text_of(b), "123456789012345");
    expect_valid(b);
}

TEST_F(bstrlib, growing_resizes_in_place_when_a_fresh_buffer_cannot_be_had) {
    const bstr_owner b(bfromcstr("abc"));
    failing_mallocs = 1;
    EXPECT_EQ(bgrow(b.get(), 20), BSTR_OK);
    EXPECT_EQ(realloc_sizes, std::vector<std::size_t>{32});
    EXPECT_EQ(b->mlen, 32);
    EXPECT_EQ(text_of(b), "abc");
}

TEST_F(bstrlib, growing_settles_for_exactly_what_was_asked) {
    const bstr_owner b(bfromcstr("abc"));
    failing_mallocs = 1;
    failing_reallocs = 1;
    EXPECT_EQ(bgrow(b.get(), 20), BSTR_OK);
    EXPECT_EQ(realloc_sizes, (std::vector<std::size_t>{32, 20}));
    EXPECT_EQ(b->mlen, 20);
    expect_valid(b);
}

TEST_F(bstrlib, text_that_grows_to_exactly_its_buffer_has_room_for_the_terminator) {
    const bstr_owner b(bfromcstr("abcdefg"));
    b->mlen = 8; // full
    failing_mallocs = 1;
    failing_reallocs = 1;
    EXPECT_EQ(bconchar(b.get(), 'h'), BSTR_OK);
    EXPECT_EQ(b->mlen, 9);
    expect_valid(b);
    EXPECT_EQ(text_of(b), "abcdefgh");
}

TEST_F(bstrlib, growing_without_memory_leaves_the_record_unchanged) {
    const bstr_owner b(bfromcstr("abc"));
    failing_mallocs = 1;
    failing_reallocs = 2;
    EXPECT_EQ(bgrow(b.get(), 20), BSTR_ERR);
    EXPECT_EQ(b->mlen, 8);
    EXPECT_EQ(text_of(b), "abc");
    expect_valid(b);
}

TEST_F(bstrlib, growth_beyond_the_largest_power_takes_the_size_itself) {
    const bstr_owner b(bfromcstr("abc"));
    failing_mallocs = 1;
    failing_reallocs = 2; // nothing is really allocated
    EXPECT_EQ(bgrow(b.get(), (1 << 30) + 1), BSTR_ERR);
    EXPECT_EQ(realloc_sizes, (std::vector<std::size_t>{(1U << 30) + 1, (1U << 30) + 1}));
    realloc_sizes.clear();
    failing_mallocs = 1;
    failing_reallocs = 2;
    EXPECT_EQ(bgrow(b.get(), (1 << 30) - 1), BSTR_ERR);
    EXPECT_EQ(realloc_sizes, (std::vector<std::size_t>{1U << 30, (1U << 30) - 1}));
}

TEST_F(bstrlib, release_refuses_what_is_not_a_live_record) {
    refused_records records;
    for (bstring b : records.all()) {
        EXPECT_EQ(bdestroy(b), BSTR_ERR);
    }
    EXPECT_EQ(std::memcmp(records.bytes, "abc", 4), 0);
    EXPECT_EQ(records.constant.slen, 3);
    EXPECT_EQ(records.constant.data, records.bytes);
    EXPECT_EQ(bdestroy(bfromcstr("abc")), BSTR_OK);
}

// Must also pass in the release build: compilers drop stores to memory that is about to be freed.
TEST_F(bstrlib, destroyed_record_is_marked_dead_before_its_release) {
    bstring b = bfromcstr("abc");
    at_release = *b;
    watched = b;
    EXPECT_EQ(bdestroy(b), BSTR_OK);
    watched = nullptr;
    EXPECT_EQ(at_release.slen, -1);
    EXPECT_LT(at_release.mlen, 0);
    EXPECT_EQ(at_release.data, nullptr);
}

} // namespace
