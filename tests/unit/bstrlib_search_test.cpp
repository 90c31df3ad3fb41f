#include "bstrlib_test.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

namespace {

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
    const tagbstring text = "10.87.33.50"_bstr;
    const tagbstring prefix = "10.87.33."_bstr;
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
    const bstr_owner play = make("PLAY");
    EXPECT_EQ(binstrcaseless(b.get(), 0, play.get()), 0);
    EXPECT_EQ(binstrcaseless(b.get(), -1, play.get()), BSTR_ERR);
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

TEST_F(bstrlib, search_of_a_byte_ends_with_the_text) {
    const bstr_owner b = make("abcX");
    b->slen = 3;
    EXPECT_EQ(bstrchrp(b.get(), 'X', 0), BSTR_ERR);
    EXPECT_EQ(bstrchrp(b.get(), 'X', 1), BSTR_ERR);
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
    const tagbstring constant = "true"_bstr;
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
    EXPECT_FALSE(bstring_endswith_caseless(make("").get(), ""));
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
