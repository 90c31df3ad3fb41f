#include "bstrlib_test.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

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
    failing_reallocs = 2; // INT_MAX bytes fit an int: only memory runs out
    EXPECT_EQ(binsert(b.get(), INT_MAX - 4, empty.get(), ' '), BSTR_ERR);
    EXPECT_EQ(text_of(b), "abc");
    expect_valid(b);
}

TEST_F(bstrlib, insert_without_memory_changes_nothing) {
    const bstr_owner b = make("abc");
    failing_mallocs = 100;
    EXPECT_EQ(binsert(b.get(), 0, b.get(), ' '), BSTR_ERR);
    failing_reallocs = 100;
    const tagbstring constant = "0123456789"_bstr;
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

} // namespace
