#include "bstrlib/bstrlib.h"

#include "bstrlib/bstr_owner.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// Memory that runs short on demand: the next `failing_allocations` calls fail, after `allowed`
// ones that succeed.
namespace {
int failing_mallocs;
int allowed_mallocs;
int failing_reallocs;
std::vector<std::size_t> realloc_sizes;
const tagbstring *watched; // what it holds at the moment of its release is kept in:
tagbstring at_release;
} // namespace

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_realloc(void *block, std::size_t size);

void *__wrap_malloc(std::size_t size) {
    if (failing_mallocs > 0 && allowed_mallocs-- <= 0) {
        --failing_mallocs;
        return nullptr;
    }
    return __real_malloc(size);
}

void *__wrap_realloc(void *block, std::size_t size) {
    realloc_sizes.push_back(size);
    if (failing_reallocs > 0) {
        --failing_reallocs;
        return nullptr;
    }
    return __real_realloc(block, size);
}

void __real_free(void *block);
void __wrap_free(void *block) {
    if (block != nullptr && block == watched) {
        std::memcpy(&at_release, block, sizeof at_release);
    }
    __real_free(block);
}
}

namespace {

class bstrlib : public testing::Test {
  protected:
    void SetUp() override {
        have_memory();
        realloc_sizes.clear();
    }
    void TearDown() override {
        have_memory();
    }
    static void have_memory() {
        failing_mallocs = failing_reallocs = allowed_mallocs = 0;
    }
};

bstr_owner make(const std::string &text) {
    return bstr_owner(blk2bstr(text.data(), static_cast<int>(text.size())));
}

std::string text_of(const_bstring b) {
    return {reinterpret_cast<const char *>(b->data), static_cast<std::size_t>(b->slen)};
}

std::string text_of(const bstr_owner &b) {
    return text_of(b.get());
}

void expect_valid(const bstr_owner &b) {
    ASSERT_NE(b.get(), nullptr);
    ASSERT_NE(b->data, nullptr);
    EXPECT_GE(b->slen, 0);
    EXPECT_GT(b->mlen, b->slen);
    EXPECT_EQ(b->data[b->slen], 0);
}

// Records that no operation may write, and what is left of them afterwards.
struct refused_records {
    unsigned char bytes[8] = {'a', 'b', 'c', 0};
    tagbstring constant = {-1, 3, bytes};
    tagbstring zero_capacity = {0, 0, bytes};
    tagbstring dead = {8, -1, bytes};
    tagbstring overlong = {2, 3, bytes};
    tagbstring without_data = {8, 0, nullptr};

    std::vector<bstring> all() {
        return {nullptr, &constant, &zero_capacity, &dead, &overlong, &without_data};
    }
};

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
    const tagbstring constant = bstr_constant("&quot;");
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
    const tagbstring constant = bstr_constant("abc");
    without_memory([] { return bfromcstr("abc"); });
    without_memory([] { return blk2bstr("abc", 3); });
    without_memory([&] { return bstrcpy(&constant); });
    without_memory([] { return bformat("%s", "abc"); });
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

// In the build that ships, too: a compiler takes stores to memory that is released next for useless.
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

TEST_F(bstrlib, append_of_a_byte) {
    const bstr_owner b(bfromcstr(""));
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(bconchar(b.get(), '\n'), BSTR_OK);
        expect_valid(b);
    }
    EXPECT_EQ(text_of(b), std::string(100, '\n'));
    EXPECT_EQ(bconchar(b.get(), 0), BSTR_OK);
    EXPECT_EQ(b->slen, 101);
    refused_records records;
    for (bstring refused : records.all()) {
        EXPECT_EQ(bconchar(refused, 'x'), BSTR_ERR);
    }
}

TEST_F(bstrlib, append_accepts_a_record_without_room_for_its_terminator) {
    auto *data = static_cast<unsigned char *>(std::malloc(8));
    auto *record = static_cast<bstring>(std::malloc(sizeof(tagbstring)));
    std::memcpy(data, "12345678", 8);
    *record = {8, 8, data};
    const bstr_owner b(record);
    EXPECT_EQ(bconchar(b.get(), '9'), BSTR_OK);
    expect_valid(b);
    EXPECT_EQ(text_of(b), "123456789");
}

TEST_F(bstrlib, insert_at_start_middle_and_end) {
    const bstr_owner b = make("bd");
    const bstr_owner a = make("a");
    const bstr_owner c = make("c");
    const bstr_owner e = make("e");
    EXPECT_EQ(binsert(b.get(), 0, a.get(), ' '), BSTR_OK);
    EXPECT_EQ(binsert(b.get(), 2, c.get(), ' '), BSTR_OK);
    EXPECT_EQ(binsert(b.get(), 4, e.get(), ' '), BSTR_OK);
    EXPECT_EQ(text_of(b), "abcde");
    expect_valid(b);
}

TEST_F(bstrlib, insert_beyond_the_end_fills_the_gap) {
    const bstr_owner b = make("ab");
    const bstr_owner c = make("c");
    EXPECT_EQ(binsert(b.get(), 5, c.get(), ','), BSTR_OK);
    EXPECT_EQ(text_of(b), "ab,,,c");
    const bstr_owner empty(bfromcstr(""));
    EXPECT_EQ(binsert(b.get(), 40, empty.get(), ' '), BSTR_OK);
    EXPECT_EQ(text_of(b), "ab,,,c" + std::string(34, ' '));
    expect_valid(b);
}

TEST_F(bstrlib, insert_of_itself_and_of_a_part_of_itself) {
    const bstr_owner b = make("abc");
    EXPECT_EQ(binsert(b.get(), 1, b.get(), ' '), BSTR_OK);
    EXPECT_EQ(text_of(b), "aabcbc");
    const tagbstring part = {-1, 2, b->data + 2};
    EXPECT_EQ(binsert(b.get(), 0, &part, ' '), BSTR_OK);
    EXPECT_EQ(text_of(b), "bcaabcbc");
    expect_valid(b);
}

TEST_F(bstrlib, insert_refuses_invalid_arguments_and_changes_nothing) {
    const bstr_owner b = make("abc");
    refused_records records;
    EXPECT_EQ(binsert(b.get(), -1, b.get(), ' '), BSTR_ERR);
    EXPECT_EQ(binsert(b.get(), INT_MIN, b.get(), ' '), BSTR_ERR);
    EXPECT_EQ(binsert(b.get(), 0, nullptr, ' '), BSTR_ERR);
    EXPECT_EQ(binsert(b.get(), 0, &records.dead, ' '), BSTR_ERR);
    EXPECT_EQ(binsert(b.get(), 0, &records.without_data, ' '), BSTR_ERR);
    for (bstring refused : records.all()) {
        EXPECT_EQ(binsert(refused, 0, b.get(), ' '), BSTR_ERR);
    }
    EXPECT_EQ(text_of(b), "abc");
    EXPECT_EQ(std::memcmp(records.bytes, "abc", 4), 0);
}

TEST_F(bstrlib, insert_at_the_edge_of_int_does_not_overflow) {
    const bstr_owner b = make("abc");
    EXPECT_EQ(binsert(b.get(), INT_MAX, b.get(), ' '), BSTR_ERR);
    EXPECT_EQ(binsert(b.get(), INT_MAX - 3, b.get(), ' '), BSTR_ERR);
    const bstr_owner empty(bfromcstr(""));
    EXPECT_EQ(binsert(b.get(), INT_MAX, empty.get(), ' '), BSTR_ERR);
    failing_mallocs = 1;
    failing_reallocs = 2; // INT_MAX bytes in all would fit an int: only memory refuses
    EXPECT_EQ(binsert(b.get(), INT_MAX - 4, empty.get(), ' '), BSTR_ERR);
    EXPECT_EQ(text_of(b), "abc");
    expect_valid(b);
}

TEST_F(bstrlib, insert_without_memory_changes_nothing) {
    const bstr_owner b = make("abc");
    failing_mallocs = 100;
    EXPECT_EQ(binsert(b.get(), 0, b.get(), ' '), BSTR_ERR);
    failing_reallocs = 100;
    const tagbstring constant = bstr_constant("0123456789");
    EXPECT_EQ(binsert(b.get(), 0, &constant, ' '), BSTR_ERR);
    EXPECT_EQ(text_of(b), "abc");
}

std::string replaced(const std::string &text, const std::string &find, const std::string &repl,
                     int pos = 0) {
    const bstr_owner b = make(text);
    const bstr_owner f = make(find);
    const bstr_owner r = make(repl);
    EXPECT_EQ(bfindreplace(b.get(), f.get(), r.get(), pos), BSTR_OK);
    expect_valid(b);
    return text_of(b);
}

TEST_F(bstrlib, replace_of_the_quotation_mark_replaces_each_once_and_rescans_nothing) {
    EXPECT_EQ(replaced("say \"go\"", "\"", "&quot;"), "say &quot;go&quot;");
    EXPECT_EQ(replaced("&", "&", "&amp;"), "&amp;");
    EXPECT_EQ(replaced("aa", "a", "aa"), "aaaa");
}

TEST_F(bstrlib, replace_by_longer_equal_shorter_and_nothing) {
    EXPECT_EQ(replaced("-a-a-", "a", "12345"), "-12345-12345-");
    EXPECT_EQ(replaced("-ab-ab-", "ab", "cd"), "-cd-cd-");
    EXPECT_EQ(replaced("-abc-abc-", "abc", "d"), "-d-d-");
    EXPECT_EQ(replaced("-abc-abc-", "abc", ""), "---");
    EXPECT_EQ(replaced("abc", "abc", ""), "");
    EXPECT_EQ(replaced("abc", "x", "y"), "abc");
    EXPECT_EQ(replaced(std::string(2000, '&'), "&", "&amp;").size(), 10000U);
}

TEST_F(bstrlib, replace_takes_matches_from_the_left_without_overlap) {
    EXPECT_EQ(replaced("aaa", "aa", "b"), "ba");
    EXPECT_EQ(replaced("aaaa", "aa", "bbb"), "bbbbbb");
}

TEST_F(bstrlib, replace_starts_at_its_position) {
    EXPECT_EQ(replaced("a.a.a", "a", "bb", 1), "a.bb.bb");
    EXPECT_EQ(replaced("aa", "aa", "b", 1), "aa");
    EXPECT_EQ(replaced("a.a", "a", "b", 3), "a.a");
    EXPECT_EQ(replaced("a.a", "a", "b", INT_MAX), "a.a");
    EXPECT_EQ(replaced("", "a", "b"), "");
}

TEST_F(bstrlib, replace_with_zero_bytes) {
    EXPECT_EQ(replaced(std::string("a\0b\0", 4), std::string("\0", 1), "--"), "a--b--");
}

TEST_F(bstrlib, replace_agrees_with_a_plain_rebuild_for_every_small_text) {
    const auto rebuilt = [](std::string text, const std::string &find, const std::string &repl,
                            std::size_t pos) {
        for (pos = text.find(find, pos); pos != std::string::npos; pos = text.find(find, pos)) {
            text.replace(pos, find.size(), repl);
            pos += repl.size();
        }
        return text;
    };
    for (unsigned bits = 0; bits < 256; ++bits) {
        std::string text;
        for (unsigned i = 0; i < 8; ++i) {
            text += (bits >> i & 1U) != 0 ? 'a' : 'b';
        }
        for (const char *find : {"a", "ab", "aa", "bab"}) {
            for (const char *repl : {"", "a", "bb", "abab"}) {
                for (int pos = 0; pos <= 8; ++pos) {
                    EXPECT_EQ(replaced(text, find, repl, pos),
                              rebuilt(text, find, repl, static_cast<std::size_t>(pos)));
                }
            }
        }
    }
}

TEST_F(bstrlib, replace_with_texts_that_share_the_targets_storage) {
    const bstr_owner b = make("abcab");
    const tagbstring find = {-1, 2, b->data};     // "ab"
    const tagbstring repl = {-1, 3, b->data + 2}; // "cab"
    EXPECT_EQ(bfindreplace(b.get(), &find, &repl, 0), BSTR_OK);
    EXPECT_EQ(text_of(b), "cabccab");
    EXPECT_EQ(bfindreplace(b.get(), b.get(), b.get(), 0), BSTR_OK);
    EXPECT_EQ(text_of(b), "cabccab");
    expect_valid(b);
}

TEST_F(bstrlib, replace_refuses_invalid_arguments) {
    const bstr_owner b = make("abc");
    const bstr_owner a = make("a");
    const bstr_owner empty(bfromcstr(""));
    refused_records records;
    EXPECT_EQ(bfindreplace(b.get(), empty.get(), a.get(), 0), BSTR_ERR);
    EXPECT_EQ(bfindreplace(b.get(), a.get(), b.get(), -1), BSTR_ERR);
    EXPECT_EQ(bfindreplace(b.get(), nullptr, a.get(), 0), BSTR_ERR);
    EXPECT_EQ(bfindreplace(b.get(), a.get(), nullptr, 0), BSTR_ERR);
    EXPECT_EQ(bfindreplace(b.get(), &records.dead, a.get(), 0), BSTR_ERR);
    EXPECT_EQ(bfindreplace(b.get(), a.get(), &records.dead, 0), BSTR_ERR);
    for (bstring refused : records.all()) {
        EXPECT_EQ(bfindreplace(refused, a.get(), b.get(), 0), BSTR_ERR);
    }
    EXPECT_EQ(text_of(b), "abc");
    EXPECT_EQ(std::memcmp(records.bytes, "abc", 4), 0);
}

TEST_F(bstrlib, replace_that_would_exceed_int_is_refused) {
    const bstr_owner b = make("aaaa");
    const bstr_owner a = make("a");
    unsigned char byte = 'x';
    const tagbstring huge = {-1, INT_MAX / 2, &byte}; // its bytes are never reached
    EXPECT_EQ(bfindreplace(b.get(), a.get(), &huge, 0), BSTR_ERR);
    EXPECT_EQ(text_of(b), "aaaa");
}

TEST_F(bstrlib, replace_without_memory_changes_nothing) {
    const bstr_owner b = make("aaaa");
    const bstr_owner a = make("a");
    const bstr_owner r = make("0123456789");
    failing_mallocs = failing_reallocs = 100;
    EXPECT_EQ(bfindreplace(b.get(), a.get(), r.get(), 0), BSTR_ERR);
    EXPECT_EQ(bfindreplace(b.get(), b.get(), r.get(), 0), BSTR_ERR);
    EXPECT_EQ(text_of(b), "aaaa");
}

TEST_F(bstrlib, search_finds_the_first_occurrence_from_its_position) {
    const bstr_owner b = make("abcabc");
    const bstr_owner bc = make("bc");
    EXPECT_EQ(binstr(b.get(), 0, bc.get()), 1);
    EXPECT_EQ(binstr(b.get(), 1, bc.get()), 1);
    EXPECT_EQ(binstr(b.get(), 2, bc.get()), 4);
    EXPECT_EQ(binstr(b.get(), 5, bc.get()), BSTR_ERR);
    EXPECT_EQ(binstr(b.get(), 0, b.get()), 0);
    EXPECT_EQ(binstr(bc.get(), 0, b.get()), BSTR_ERR);
}

TEST_F(bstrlib, search_at_the_length_finds_only_an_empty_text) {
    const bstr_owner b = make("abc");
    const bstr_owner c = make("c");
    const bstr_owner empty(bfromcstr(""));
    EXPECT_EQ(binstr(b.get(), 3, c.get()), BSTR_ERR);
    EXPECT_EQ(binstr(b.get(), 3, empty.get()), 3);
    EXPECT_EQ(binstr(b.get(), 1, empty.get()), 1);
    EXPECT_EQ(binstr(empty.get(), 0, empty.get()), 0);
    EXPECT_EQ(binstr(b.get(), 4, empty.get()), BSTR_ERR);
    EXPECT_EQ(binstr(b.get(), INT_MAX, empty.get()), BSTR_ERR);
    EXPECT_EQ(binstr(b.get(), -1, c.get()), BSTR_ERR);
}

TEST_F(bstrlib, search_reads_constant_records_and_refuses_dead_ones) {
    const tagbstring text = bstr_constant("10.87.33.50");
    const tagbstring prefix = bstr_constant("10.87.33.");
    refused_records records;
    EXPECT_EQ(binstr(&text, 0, &prefix), 0);
    EXPECT_EQ(binstr(nullptr, 0, &prefix), BSTR_ERR);
    EXPECT_EQ(binstr(&text, 0, nullptr), BSTR_ERR);
    EXPECT_EQ(binstr(&records.dead, 0, &prefix), BSTR_ERR);
    EXPECT_EQ(binstr(&text, 0, &records.without_data), BSTR_ERR);
}

TEST_F(bstrlib, caseless_search) {
    const bstr_owner b = make("play.WaV");
    const bstr_owner wav = make(".wAv");
    EXPECT_EQ(binstrcaseless(b.get(), 0, wav.get()), 4);
    EXPECT_EQ(binstrcaseless(b.get(), 5, wav.get()), BSTR_ERR);
    EXPECT_EQ(binstr(b.get(), 0, wav.get()), BSTR_ERR);
    EXPECT_EQ(binstrcaseless(nullptr, 0, wav.get()), BSTR_ERR);
    const bstr_owner high = make("\xC4");
    const bstr_owner other = make("\xE4");
    EXPECT_EQ(binstrcaseless(high.get(), 0, other.get()), BSTR_ERR);
}

TEST_F(bstrlib, search_of_a_byte) {
    const bstr_owner b = make(std::string("a\"b\"\xff\0", 6));
    EXPECT_EQ(bstrchrp(b.get(), '"', 0), 1);
    EXPECT_EQ(bstrchrp(b.get(), '"', 2), 3);
    EXPECT_EQ(bstrchrp(b.get(), '"', 4), BSTR_ERR);
    EXPECT_EQ(bstrchrp(b.get(), 0xff, 0), 4);
    EXPECT_EQ(bstrchrp(b.get(), -1, 0), 4);
    EXPECT_EQ(bstrchrp(b.get(), 0, 0), 5);
    EXPECT_EQ(bstrchrp(b.get(), 'a', 6), BSTR_ERR);
    EXPECT_EQ(bstrchrp(b.get(), 0, 6), BSTR_ERR);
    EXPECT_EQ(bstrchrp(b.get(), 'a', -1), BSTR_ERR);
    EXPECT_EQ(bstrchrp(nullptr, 'a', 0), BSTR_ERR);
}

std::string middle(const std::string &text, int left, int len) {
    const bstr_owner b = make(text);
    const bstr_owner part(bmidstr(b.get(), left, len));
    expect_valid(part);
    return text_of(part);
}

TEST_F(bstrlib, middle_part_is_clipped_to_the_text) {
    EXPECT_EQ(middle("abcdefg", 5, 10), "fg");
    EXPECT_EQ(middle("abcdefg", 2, 3), "cde");
    EXPECT_EQ(middle("abcdefg", -2, 4), "ab");
    EXPECT_EQ(middle("abcdefg", 0, INT_MAX), "abcdefg");
    EXPECT_EQ(middle("abcdefg", 6, INT_MAX), "g");
}

TEST_F(bstrlib, middle_part_that_holds_nothing_is_an_empty_record) {
    EXPECT_EQ(middle("abcdefg", 9, 1), "");
    EXPECT_EQ(middle("abcdefg", 7, 1), "");
    EXPECT_EQ(middle("abcdefg", 3, 0), "");
    EXPECT_EQ(middle("abcdefg", 3, -1), "");
    EXPECT_EQ(middle("abcdefg", -4, 4), "");
    EXPECT_EQ(middle("abcdefg", INT_MIN, INT_MAX), "");
    EXPECT_EQ(middle("abcdefg", INT_MIN, INT_MIN), "");
    EXPECT_EQ(middle("abcdefg", INT_MAX, INT_MAX), "");
    refused_records records;
    EXPECT_EQ(bmidstr(nullptr, 0, 1), nullptr);
    EXPECT_EQ(bmidstr(&records.dead, 0, 1), nullptr);
    EXPECT_EQ(bmidstr(&records.without_data, 0, 1), nullptr);
}

TEST_F(bstrlib, equality_is_exact) {
    const bstr_owner b = make("true");
    EXPECT_EQ(biseqcstr(b.get(), "true"), 1);
    EXPECT_EQ(biseqcstr(b.get(), "True"), 0);
    EXPECT_EQ(biseqcstr(b.get(), "tru"), 0);
    EXPECT_EQ(biseqcstr(b.get(), "true "), 0);
    EXPECT_EQ(biseqcstr(b.get(), ""), 0);
    const bstr_owner empty(bfromcstr(""));
    EXPECT_EQ(biseqcstr(empty.get(), ""), 1);
    const tagbstring constant = bstr_constant("true");
    EXPECT_EQ(biseqcstr(&constant, "true"), 1);
}

TEST_F(bstrlib, equality_with_a_zero_byte_inside_never_holds) {
    EXPECT_EQ(biseqcstr(make(std::string("ab\0", 3)).get(), "ab"), 0);
    EXPECT_EQ(biseqcstr(make(std::string("ab\0cd", 5)).get(), "ab"), 0);
    EXPECT_EQ(biseqcstrcaseless(make(std::string("\0", 1)).get(), ""), 0);
}

TEST_F(bstrlib, equality_of_a_null_handle_is_the_error_value) {
    refused_records records;
    const bstr_owner b = make("a");
    for (const auto equality : {biseqcstr, biseqcstrcaseless}) {
        EXPECT_EQ(equality(nullptr, "a"), BSTR_ERR);
        EXPECT_EQ(equality(b.get(), nullptr), BSTR_ERR);
        EXPECT_EQ(equality(&records.dead, "a"), BSTR_ERR);
        EXPECT_EQ(equality(&records.without_data, ""), BSTR_ERR);
    }
}

TEST_F(bstrlib, caseless_equality) {
    const bstr_owner b = make("TrUe");
    EXPECT_EQ(biseqcstrcaseless(b.get(), "tRuE"), 1);
    EXPECT_EQ(biseqcstrcaseless(b.get(), "truth"), 0);
    EXPECT_EQ(biseqcstrcaseless(b.get(), "tru"), 0);
    EXPECT_EQ(biseqcstrcaseless(b.get(), "true!"), 0);
}

TEST_F(bstrlib, format_of_a_short_text_takes_one_attempt_of_twice_the_format) {
    const bstr_owner b(bformat("%d-%s", 7, "x"));
    expect_valid(b);
    EXPECT_EQ(text_of(b), "7-x");
    EXPECT_EQ(b->mlen, 18); // 16 at the least, and two more
}

TEST_F(bstrlib, format_longer_than_twice_its_format_is_completed_by_a_second_attempt) {
    const std::string text(5000, 'x');
    const bstr_owner b(bformat("%s/%d", text.c_str(), 42));
    expect_valid(b);
    EXPECT_EQ(text_of(b), text + "/42");
    EXPECT_EQ(b->mlen, 8192); // grown once, to the size that was reported
}

TEST_F(bstrlib, format_of_every_length_around_the_first_attempt) {
    for (int length = 0; length < 70; ++length) {
        const std::string text(static_cast<std::size_t>(length), 'y');
        const bstr_owner b(bformat("%s", text.c_str()));
        expect_valid(b);
        EXPECT_EQ(text_of(b), text);
    }
}

TEST_F(bstrlib, format_works_in_the_smallest_scratch_when_memory_is_short) {
    allowed_mallocs = 1; // the record; its buffer of 18 fails
    failing_mallocs = 1;
    const bstr_owner b(bformat("%s", "abcdef"));
    expect_valid(b);
    EXPECT_EQ(text_of(b), "abcdef");
}

TEST_F(bstrlib, format_that_cannot_grow_fails) {
    const std::string text(5000, 'x');
    allowed_mallocs = 2;
    failing_mallocs = 100;
    failing_reallocs = 100;
    const bstring b = bformat("%s", text.c_str());
    have_memory();
    EXPECT_EQ(b, nullptr);
}

TEST_F(bstrlib, format_of_null_is_null) {
    // By way of plain pointers: the compiler would not let the format be null.
    bstring (*const format)(const char *, ...) = bformat;
    int (*const append)(bstring, const char *, ...) = bformata;
    EXPECT_EQ(format(nullptr), nullptr);
    const bstr_owner b = make("a");
    EXPECT_EQ(append(b.get(), nullptr), BSTR_ERR);
    EXPECT_EQ(text_of(b), "a");
}

TEST_F(bstrlib, format_appended) {
    const bstr_owner b = make("http://127.0.0.1/");
    EXPECT_EQ(bformata(b.get(), "?rotation=%i", 90), BSTR_OK);
    EXPECT_EQ(text_of(b), "http://127.0.0.1/?rotation=90");
    EXPECT_EQ(bformata(b.get(), "%s", reinterpret_cast<const char *>(b->data)), BSTR_OK);
    EXPECT_EQ(text_of(b), "http://127.0.0.1/?rotation=90http://127.0.0.1/?rotation=90");
    refused_records records;
    for (bstring refused : records.all()) {
        EXPECT_EQ(bformata(refused, "x"), BSTR_ERR);
    }
    EXPECT_EQ(std::memcmp(records.bytes, "abc", 4), 0);
}

TEST_F(bstrlib, ending_is_recognised_in_any_case) {
    EXPECT_TRUE(bstring_endswith_caseless(make("http://host/clip.WAV").get(), ".wav"));
    EXPECT_TRUE(bstring_endswith_caseless(make(".wav").get(), ".wav"));
    EXPECT_FALSE(bstring_endswith_caseless(make("clip.wav?x").get(), ".wav"));
    EXPECT_FALSE(bstring_endswith_caseless(make("wav").get(), ".wav"));
    EXPECT_FALSE(bstring_endswith_caseless(make("clip.raw").get(), ".wav"));
}

TEST_F(bstrlib, ending_that_also_occurs_earlier_is_not_recognised) {
    EXPECT_FALSE(bstring_endswith_caseless(make("a.wav.wav").get(), ".wav"));
}

TEST_F(bstrlib, empty_ending_and_null_subject_are_not_recognised) {
    EXPECT_FALSE(bstring_endswith_caseless(make("a").get(), ""));
    EXPECT_FALSE(bstring_endswith_caseless(make("a").get(), nullptr));
    EXPECT_FALSE(bstring_endswith_caseless(nullptr, ".wav"));
}

TEST_F(bstrlib, text_of_nothing_is_empty) {
    refused_records records;
    EXPECT_STREQ(bstr_text(nullptr), "");
    EXPECT_STREQ(bstr_text(&records.dead), "");
    EXPECT_STREQ(bstr_text(make("abc").get()), "abc");
}

} // namespace
